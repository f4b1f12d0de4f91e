"""The bash completion's word lists match what uhfctl --help says."""
import re
import subprocess
import sys

uhfctl, script = sys.argv[1], open(sys.argv[2]).read()


def words(var):
    return set(re.search(r'^_uhfctl_%s="([^"]*)"' % var, script, re.M).group(1).split())


def helped(*args, section):
    text = subprocess.run([uhfctl, *args, "--help"], capture_output=True, text=True).stdout
    body = text.split(section, 1)[1]
    return {m.group(1) for m in re.finditer(r"^  ([a-z][a-z0-9-]*)\s", body, re.M)} - {"uhfctl"}


checks = {
    "subcommands": (words("subcommands"), helped(section="Subcommands:")),
    "settings": (words("settings"), helped("set", section="Names and values:")),
    "get names": (words("status") | words("settings"), helped("get", section="Names")),
}
bad = {k: (a ^ b) for k, (a, b) in checks.items() if a != b}
print(bad or "completion matches --help")
sys.exit(1 if bad else 0)
