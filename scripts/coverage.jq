# Turn gcov's output for all objects into one tracefile for gcovr. gcovr itself would read gcov's text, which does not
# tell the branches of exceptions where nothing was executed, and which has only one of several instantiations of a
# template.
#
# The input is gcov's JSON, one document for each object. The argument $root is the directory of the repository.

def branches: [.branches[] | select(.throw | not) | .count];

def sum_by_position: (map(length) | max // 0) as $most | [range($most) as $i | map(.[$i] // 0) | add];

[inputs | .files[]
  | .file |= (if startswith("/") then ltrimstr($root + "/") else . end)
  | select(.file | test("^(starter|scrt)/"))]
| group_by(.file)
| {
    "gcovr/format_version": "0.3",
    files: map({
      file: .[0].file,
      functions: [],
      lines: (map(.lines[]) | group_by(.line_number) | map({
        line_number: .[0].line_number,
        count: (map(.count) | add),
        "gcovr/noncode": false,
        "gcovr/excluded": false,
        branches: (map(branches) | sum_by_position | map({count: ., fallthrough: false, throw: false}))
      }))
    })
  }
