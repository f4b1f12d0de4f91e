"""The generated bash completion offers, at each subcommand level, what that level's --help lists."""
import re
import subprocess
import sys

uhfctl, script = sys.argv[1], open(sys.argv[2]).read()
levels = dict(re.findall(r'^ +"(/[^"]*|)"\) words="([^"]*)"', script, re.M))
value_case = r'^ +"([^"]*)"\*" (--[\w-]+)"\) (?:COMPREPLY=\(\$\(compgen -W "([^"]*)")?'
values = {(p, o): w.split() for p, o, w in re.findall(value_case, script, re.M)}


def section(text, title):
    body = text.split(title + "\n", 1)[1].split("\n\n")[0] if title in text else ""
    return set(re.findall(r"^  ([a-z][\w-]*)", body, re.M))


bad = []
for path, offered in levels.items():
    text = subprocess.run([uhfctl, *path.split("/")[1:], "--help"], capture_output=True, text=True).stdout
    words, options = set(offered.split()), set(re.findall(r"^\s+(?:-\w,)?(--[a-z][\w-]*)", text, re.M))
    # Subcommands and setting names exactly; other words (banks, lock areas) as --help mentions them.
    exact = section(text, "Subcommands:") | section(text, {"/get": "Names:", "/set": "Names and values:"}.get(path, "\0"))
    plain = {w for w in words if not w.startswith("-")}
    if words - plain != options or exact and plain != exact or any(not re.search(rf"\b{w}\b", text) for w in plain):
        bad.append((path, words ^ options ^ exact))
    for opt, choices in re.findall(r"^\s+(?:-\w,)?(--[a-z][\w-]*) \w+:\{([^}]*)\}", text, re.M):
        if values.get((path, opt)) != choices.split(","):
            bad.append((path, opt, values.get((path, opt))))
print(bad or "the completion matches every --help")
sys.exit(1 if bad else 0)
