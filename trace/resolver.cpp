#include "trace/resolver.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>

enum { PAGE_SIZE = 4096 };

Module module_of(const Frame& frame)
{
  if (frame.module)
    return *frame.module;

  Module module;
  module.path = frame.line.module;
  return module;
}

// ---- Modules that the log does not name

using Biases = std::set<std::uint64_t>;

// Where the module may have been loaded, as far as one frame tells: its address less that in the file.
static Biases biases_of(const Frame_Line& frame, const Library& library)
{
  if (frame.symbol.empty())
    return {frame.has_offset ? frame.address - static_cast<std::uint64_t>(frame.offset) : 0};

  Biases biases;
  for (const std::uint64_t address : library.addresses_of(frame.symbol)) {
    const std::uint64_t bias = frame.address - static_cast<std::uint64_t>(frame.offset) - address;
    if (bias % PAGE_SIZE == 0)
      biases.insert(bias);
  }
  return biases;
}

namespace
{
/// The place where each module was loaded, by its name in the frames; none if the frames do not agree with the file.
using Bias_By_Module = std::map<std::string, std::optional<std::uint64_t>>;
} // namespace

static std::optional<std::uint64_t> common_bias(const Trace& trace, const std::string& name, Symboliser& symboliser)
{
  std::optional<Biases> common;
  for (const Frame& frame : trace.frames) {
    if (frame.module || frame.line.module != name)
      continue;
    const Biases biases = biases_of(frame.line, symboliser.library(module_of(frame)));
    if (!common)
      common = biases;
    Biases both;
    std::set_intersection(common->begin(), common->end(), biases.begin(), biases.end(),
                          std::inserter(both, both.end()));
    common = both;
  }
  return common && common->size() == 1 ? std::optional(*common->begin()) : std::nullopt;
}

static bool is_taken_from_path(const Frame& frame)
{
  return !frame.module && !frame.line.module.empty() && frame.line.module[0] == '/';
}

static Bias_By_Module find_biases(const Trace& trace, Symboliser& symboliser)
{
  Bias_By_Module biases;
  for (const Frame& frame : trace.frames)
    if (is_taken_from_path(frame) && biases.count(frame.line.module) == 0 &&
        symboliser.library(module_of(frame)).is_open())
      biases[frame.line.module] = common_bias(trace, frame.line.module, symboliser);
  return biases;
}

// ---- Frames

// Why there is nothing to look up, or RESOLVED.
static Outcome obstacle_of(const Frame& frame)
{
  if (frame.is_cut)
    return Outcome::CUT;
  if (frame.module || is_taken_from_path(frame))
    return Outcome::RESOLVED;
  return frame.line.module.empty() ? Outcome::NO_MODULE : Outcome::UNKNOWN_PATH;
}

static std::optional<std::uint64_t> find_address(const Frame& frame, const Bias_By_Module& biases,
                                                 Symboliser& symboliser)
{
  if (frame.module)
    return symboliser.address_in_file(*frame.module, frame.line.address);

  const auto bias = biases.find(frame.line.module);
  if (bias == biases.end())
    return 0; // the file is not open
  return bias->second ? std::optional(frame.line.address - *bias->second) : std::nullopt;
}

static Resolution without_lookup(Outcome outcome)
{
  Resolution resolution;
  resolution.outcome = outcome;
  return resolution;
}

std::vector<Resolution> resolve_trace(const Trace& trace, Symboliser& symboliser)
{
  const Bias_By_Module biases = find_biases(trace, symboliser);

  std::vector<Resolution> resolutions;
  bool is_interrupted = false; // by a signal whose handler is in the frames before
  for (const Frame& frame : trace.frames) {
    const bool is_exact = frame.is_interrupted || is_interrupted;
    is_interrupted = false;
    Outcome outcome = obstacle_of(frame);
    std::optional<std::uint64_t> address;
    if (outcome == Outcome::RESOLVED && !(address = find_address(frame, biases, symboliser)))
      outcome = Outcome::MISFIT;
    if (!address) {
      resolutions.push_back(without_lookup(outcome));
      continue;
    }

    const Module module = module_of(frame);
    const Library& library = symboliser.library(module);
    is_interrupted = library.is_open() && library.is_signal_frame(*address);
    resolutions.push_back(symboliser.resolve_in_file(module, *address, is_exact));
  }
  return resolutions;
}
