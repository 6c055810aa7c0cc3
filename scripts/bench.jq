# Turns the results of Google Benchmark into lines of the table: the time of one call in each of the ways that a
# benchmark compares. The ratio says how many times as long as this way the support library takes. The counters that
# this reads are those of bench/side_by_side.h.
def quantile(q): sort | .[((length - 1) * q + 0.5) | floor];
def middle: quantile(0.5) | . * 1000 | round / 1000;
def sentence: sub("/manual_time"; "") | sub("/repeats:[0-9]+"; "") | gsub("/(?<argument>[a-z]+):"; ", \(.argument) ")
  | gsub(", to "; " to ") | gsub("/"; " ");

[.benchmarks[] | select(.run_type == "iteration")] | group_by([.family_index, .per_family_instance_index])[]
| . as $runs | ($runs[0].name | sentence) as $name
| [$runs[0] | keys[] | select(endswith(":ns")) | rtrimstr(":ns")] as $ways
| ($ways | sort_by(. as $way | $runs[0] | has($way)))[] as $way
| ([$runs[] | .[$way] // 1] | middle) as $ratio
| ["library", "time of a call, ns", "\($name): \($way)"] + (["q1", "ns", "q3"] | map("\($way):\(.)" as $of | [$runs[][$of]] | middle))
  + [$ratio]
| @tsv
