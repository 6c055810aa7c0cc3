#ifndef BENCH_FIGURES_H
#define BENCH_FIGURES_H

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

/// Returns the value below which the share `q` of the samples lies.
inline double quantile(std::vector<double> samples, double q)
{
  if (samples.empty())
    return 0;
  const std::size_t at = static_cast<std::size_t>(q * static_cast<double>(samples.size() - 1) + 0.5);
  std::nth_element(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(at), samples.end());
  return samples[at];
}

/// Returns the ratio of the two samples of each round.
inline std::vector<double> ratios_of(const std::vector<double>& samples, const std::vector<double>& reference)
{
  std::vector<double> ratios;
  for (std::size_t n = 0; n < std::min(samples.size(), reference.size()); ++n)
    if (reference[n] > 0)
      ratios.push_back(samples[n] / reference[n]);
  return ratios;
}

/// Print one line of the table: the row, what is measured in which unit, the subject, the quartiles and the median, and
/// the ratio to the reference. `reference` holds its samples of the same rounds: the ratio is the median of the rounds'
/// own ratios, so that what slows a round down slows both. scripts/bench reads these lines.
inline void print_figures(const std::string& row, const std::string& what, const std::string& subject,
                          const std::vector<double>& samples, const std::vector<double>& reference = {})
{
  const std::vector<double> ratios = ratios_of(samples, reference);
  std::printf("%s\t%s\t%s\t%.4g\t%.4g\t%.4g\t", row.c_str(), what.c_str(), subject.c_str(), quantile(samples, 0.25),
              quantile(samples, 0.5), quantile(samples, 0.75));
  if (ratios.empty())
    std::printf("-\n");
  else
    std::printf("%.3f\n", quantile(ratios, 0.5));
  std::fflush(stdout);
}

#endif // BENCH_FIGURES_H
