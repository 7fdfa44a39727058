#!/usr/bin/env bash
# Reads the documents as a newcomer does: links lead somewhere, every page is found from the README, pictures are those
# of their texts, the program shown is the one in examples/, and the commands work.
#   check_docs.sh <source folder> <build folder> <folder for its files>
set -euo pipefail
cd "$1"
build=$2 work=$3
failures=0

fault() {
  echo "$*" >&2
  failures=$((failures + 1))
}

# Commands that are not run here, as regular expressions for a whole line, and why.
not_run=(
  'make (demo|test)'                 'continuous integration runs them, and this is one of their tests'
  'scripts/install-packages'         'every make target runs it'
  'cmake --preset dev'               'a build of everything; continuous integration makes one'
  'ninja -C build/dev [a-z_]+'       'the same'
  'ctest --preset .*'                'the tests run already'
  'build/release/tests/[a-z]+/.*'    'the same'
  'make (fuzz|coverage|memcheck|test PRESET).*'  'minutes, or builds of everything'
  'scripts/coverage .*'              'the same'
)

documents() {
  find . \( -name build -o -name .git -o -path ./tests \) -prune -o -name '*.md' -print | sort
}

check_links() {
  local document=$1 target
  while read -r target; do
    [ -e "$(dirname "$document")/$target" ] || fault "$document: nothing is at $target"
  done < <(grep -oP '\]\(\K(?!https?:)[^)#]+' "$document")
}

# What stands in backquotes and looks like a file or a target of make.
check_names() {
  local document=$1 name
  while read -r name; do
    [ -e "$name" ] || [ -e "$(dirname "$document")/$name" ] || fault "$document: there is no $name"
  done < <(grep -oP '`\K(platform|foundation|storage|jobs|settings|users|transport|cmake|scripts|tests|docs|abi|tools|examples)/[a-zA-Z0-9_./-]+(?=`)' \
    "$document")
  while read -r name; do
    grep -q "^$name:" Makefile || fault "$document: there is no target for make $name"
  done < <(grep -oP '`make \K[a-z]+' "$document")
}

check_index() {
  local page
  grep -q '](docs/README.md)' README.md || fault 'README.md does not lead to docs/README.md'
  while read -r page; do
    grep -qF "](${page#docs/})" docs/README.md || fault "docs/README.md does not lead to $page"
  done < <(find docs -name '*.md' ! -path docs/README.md)
}

# Each header of the platform has a section in the page for those who serve another system.
check_porting() {
  local header
  for header in platform/*.h; do
    grep -qx "## $header" docs/porting.md || fault "docs/porting.md has no section about $header"
  done
}

# Each key of the settings has a row, and each message number of a key stands in its row.
check_settings() {
  local key number row
  while read -r key; do
    row=$(grep "^| \`$key\` " docs/settings.md) || fault "docs/settings.md has no row for $key"
    for number in $(grep -ozP "\{L\"$key\"[^{}]*" settings/client_setting_table.h | grep -aoE '1202[0-9]{5}'); do
      [[ $row == *$number* ]] || fault "docs/settings.md: the row of $key lacks $number"
    done
  done < <(grep -ohP '\{L"\K\w+(?=")' settings/client_setting_table.h)
  while read -r key; do
    grep -q "^| $key " docs/settings.md || fault "docs/settings.md has no row for item $key"
  done < <(grep -ohP '^TQ_\w+\(\K[0-9]+' settings/system_setting_items.h)
}

check_pictures() {
  local source picture
  for source in docs/pictures/*.dot; do
    picture=${source%.dot}.svg
    grep -q "SHA-256 $(sha256sum < "$source" | cut -d' ' -f1)" "$picture" ||
      fault "$picture was not made from $source as it is; \`make pictures\` draws it"
    grep -rqF "pictures/$(basename "$picture")" docs/*.md docs/decisions README.md || fault "no page shows $picture"
  done
}

# The whole program of the README, as it stands in examples/.
check_program() {
  awk '/^```cpp/ {inside = 1; next} /^```/ {inside = 0} inside' README.md | cmp -s - examples/hold_job/hold_job.cpp ||
    fault 'README.md does not show examples/hold_job/hold_job.cpp as it is'
}

# The lines of the blocks of shell commands, without what is not run here.
commands_of() {
  local patterns=() index
  for ((index = 0; index < ${#not_run[@]}; index += 2)); do
    patterns+=(-e "^ *${not_run[index]}( *#.*)?\$")
  done
  awk '/^```sh$/ {inside = 1; next} /^```/ {inside = 0} inside' "$1" | grep -vE "${patterns[@]}" || true
}

# Each document has a shell and a home of its own, in which the build stands where the documents say.
check_commands() {
  local document=$1 commands home=$work/home
  commands=$(commands_of "$document")
  [ -n "$commands" ] || return 0
  rm -rf "$work"
  mkdir -p "$home" "$work/tree/build"
  ln -s "$PWD"/* "$work/tree" 2> /dev/null || true  # all but build, which is there
  ln -s "$build" "$work/tree/build/release"
  if ! (cd "$work/tree" && env -u TQ_COMMON_APPDATA -u TQ_VOLUMES HOME="$home" LC_ALL=C.UTF-8 \
      PATH="$build/tools:$build/examples:$PATH" bash -euo pipefail -xc "$commands") > "$work/output" 2>&1; then
    fault "$document: a command failed"
    tail -n 20 "$work/output" >&2
  fi
}

while read -r document; do
  check_links "$document"
  check_names "$document"
  check_commands "$document"
done < <(documents)
check_index
check_porting
check_settings
check_pictures
check_program
rm -rf "$work"
exit $((failures > 0))
