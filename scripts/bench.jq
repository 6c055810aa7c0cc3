# Turns the results of Google Benchmark into lines of the table: the time of our own way, and for each other way how many
# times as long ours takes.
def quantile(q): sort | .[((length - 1) * q + 0.5) | floor];
def quartiles: [quantile(0.25), quantile(0.5), quantile(0.75)] | map(. * 1000 | round / 1000);

["name", "family_index", "per_family_instance_index", "run_name", "run_type", "repetitions", "repetition_index",
 "threads", "iterations", "real_time", "cpu_time", "time_unit", "label"] as $standard
| [.benchmarks[] | select(.run_type == "iteration")] | group_by(.name)[]
| . as $runs | ($runs[0].name | sub("/manual_time"; "") | sub("/repeats:[0-9]+"; "")) as $name
| (["library", "time, \($runs[0].time_unit)", $name] + ([$runs[].real_time] | quartiles) + ["-"]),
  (($runs[0] | keys - $standard)[] as $way
   | [$runs[][$way]] as $ratios
   | ["library", "ratio to \($way)", $name] + ($ratios | quartiles) + [$ratios | quartiles[1]])
| @tsv
