#!/bin/sh
# Writes a help2man include file for a tool: the examples of its --help as
# printed, one a line (help2man would fill them into one paragraph), and for
# a tool with subcommands a SUBCOMMANDS section holding each one's --help.
tool=$1
# Lines kept as they are: no roff escapes, and none read as an include
# file's [section] or /pattern/.
verbatim() { sed -e 's/\\/\\e/g' -e 's/^/\\\&/'; }

examples=$("$tool" --help | awk '/^Examples:$/ {on = 1; next} on && /^$/ {exit} on {sub(/^  /, ""); print}')
if [ -n "$examples" ]; then
    echo "[=EXAMPLES]"
    echo ".nf"
    echo "$examples" | verbatim
    echo ".fi"
fi
subs=$("$tool" --help | awk '/^Subcommands:/ {on = 1; next} on && /^$/ {exit} on && /^  [a-z]/ {print $1}')
[ -n "$subs" ] && echo "[SUBCOMMANDS]"
for sub in $subs; do
    echo ".SS $sub"
    echo ".nf"
    "$tool" "$sub" --help | verbatim
    echo ".fi"
done
