#!/bin/sh
# Writes a help2man include file: one SUBCOMMANDS section holding each
# subcommand's own --help, so the manual page says what the tool says.
tool=$1
echo "[SUBCOMMANDS]"
for sub in $("$tool" --help | awk '/^Subcommands:/ {on = 1; next} on && /^  [a-z]/ {print $1}'); do
    echo ".SS $sub"
    echo ".nf"
    "$tool" "$sub" --help | sed -e 's/\\/\\e/g' -e 's/^\./\\\&./'
    echo ".fi"
done
