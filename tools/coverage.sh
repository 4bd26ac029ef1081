#!/usr/bin/env bash
# Line and branch coverage of serialize/ and access/ from every test program,
# with clang source-based coverage (the "coverage" preset), and the message
# texts of those folders (their debug output aside) that no test mentions.
#
#   tools/coverage.sh [build folder]     default: build/coverage
#
# Needs clang, llvm-profdata and llvm-cov (Debian: clang, llvm), and python3
# for the message check. Prints the per-file table and the totals; the HTML
# report goes to <build folder>/coverage-html.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/coverage}
for tool in clang++ llvm-profdata llvm-cov python3; do
  command -v "$tool" >/dev/null || { echo "coverage: $tool is missing" >&2; exit 2; }
done

cmake --preset coverage -B "$build" >/dev/null
cmake --build "$build" -j2
profiles="$PWD/$build/profiles"
rm -rf "$profiles"
mkdir -p "$profiles"
# Every test writes its own profile; a failing test still counts.
LLVM_PROFILE_FILE="$profiles/%p-%m.profraw" ctest --test-dir "$build" -j2 --timeout 600 \
  --output-on-failure || echo "coverage: some tests failed; the figures below still count them" >&2
llvm-profdata merge -sparse "$profiles"/*.profraw -o "$build/kivo.profdata"

# The test programs, the tool and the shared library: every object whose
# code the tests ran.
objects=()
while IFS= read -r object; do
  objects+=("$object")
done < <(find "$build" -type f \( -name 'kivo_*tests' -o -name 'kivo-meta' -o -name 'libkivo.so*' \) \
           -perm -u+x | sort)
arguments=("${objects[0]}")
for object in "${objects[@]:1}"; do arguments+=(-object "$object"); done

report() {
  llvm-cov report -instr-profile "$build/kivo.profdata" "${arguments[@]}" "$@" 2>/dev/null
}
echo
echo "== line and branch coverage of serialize/ and access/"
report "$PWD/serialize" "$PWD/access"
echo
echo "== totals per folder: lines, line cover, branches, branch cover"
for folder in serialize access; do
  report "$PWD/$folder" | awk -v folder="$folder/" '$1 == "TOTAL" {print folder, $8, $10, $11, $13}'
done
llvm-cov show -format=html -output-dir "$build/coverage-html" -show-branches=count \
  -instr-profile "$build/kivo.profdata" "${arguments[@]}" "$PWD/serialize" "$PWD/access"

echo
echo "== message texts of serialize/ and access/ that no test mentions"
python3 - serialize access <<'PYTHON'
import pathlib, re, sys
literal = re.compile(r'"((?:[^"\\\n]|\\.)*)"')
# Adjacent literals of the tests joined, as the compiler joins them.
tests = "\n".join(p.read_text(errors="replace") for p in pathlib.Path("tests").rglob("*.cpp"))
tests = re.sub(r'"\s*\n\s*"', "", tests)
missing = 0
for folder in sys.argv[1:]:
    for source in sorted(pathlib.Path(folder).glob("*.cpp")):
        for number, line in enumerate(source.read_text(errors="replace").splitlines(), 1):
            if line.strip() == "// Debug output":
                break  # debug texts, not messages
            if line.lstrip().startswith(("//", "#include")):
                continue
            for text in literal.findall(line):
                # Message texts and their pieces: words with a blank between.
                if len(text.strip()) < 6 or " " not in text.strip() or not re.search("[A-Za-z]{3}", text):
                    continue
                if text not in tests:
                    missing += 1
                    print(f"{source}:{number}: \"{text}\"")
print(f"{missing} message texts not found in tests/")
PYTHON
