#!/bin/sh
# help2man runs "help-with-subcommands.sh PROGRAM --help" (and --version) in place
# of the program: after the program's own help it prints the help of each
# subcommand listed there, so the manual page carries every option. Each
# subcommand's help gets a heading line, and its first lines (what it does, its
# usage) are indented as paragraphs under it, which help2man turns into a
# subsection.
prog=$1
shift
"$prog" "$@" || exit
[ "$1" = --help ] || exit 0
for sub in $("$prog" --help | sed -n '/^Subcommands:/,$ s/^  \([a-z0-9-]*\) .*/\1/p'); do
  text=$("$prog" "$sub" --help) || exit
  printf '\n%s %s:\n' "${prog##*/}" "$sub"
  printf '%s\n' "$text" | awk '
    !body && /^$/ { body = 1 }
    !body { print "  " $0; if (NR == 1) print ""; next }
    { print }'
done
