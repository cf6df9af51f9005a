#!/usr/bin/env python3
"""What the shells offer when the tab key is pressed. All shells must offer the same."""

import os
import re
import subprocess

import runs

# Each script is given the folder of the completions and command lines. It prints "= LINE" for each
# line, and then what the shell offers.
BASH = r"""
for line in "${@:2}"; do
  echo "= $line"
  read -ra COMP_WORDS <<<"$line"
  [[ $line == *' ' ]] && COMP_WORDS+=('')
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  source "$1/bash/${COMP_WORDS[0]}"
  function_of=$(complete -p "${COMP_WORDS[0]}")
  function_of=${function_of#*-F }
  ${function_of% *} "${COMP_WORDS[0]}" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
  printf '%s\n' "${COMPREPLY[@]}"
done
"""
FISH = r"""
for file in $argv[1]/fish/*; source $file; end
for line in $argv[2..]; echo "= $line"; complete -C$line | string replace -r '\t.*' ''; end
"""
# An interactive zsh with its own terminal; everything that it offers is written to a file.
ZSH = r"""
zmodload zsh/zpty
zpty asked 'PS1= TERM=dumb zsh -f -i'
say() { zpty -w asked "$1; print D''ONE"; zpty -r -m asked answer '*DONE*' }
say "fpath=(${(q)1}/zsh \$fpath); autoload -Uz compinit; compinit -u -D; bindkey '^I' list-choices"
say 'compadd() {
  local -a found
  if [[ " $* " != *" -"[OAD]" "* ]]; then
    builtin compadd -A found "$@"; print -rl -- $found >> offered
  fi
  builtin compadd "$@"
}'
for line in "${@:2}"; do
  print -r -- "= $line"
  zpty -w -n asked "$line"$'\t\C-u'
  say true
  [[ -e offered ]] && cat offered && rm offered
done
"""
SHELLS = (
    ["bash", "-c", BASH, "-"],
    ["fish", "--no-config", "-c", FISH],
    ["zsh", "-f", "-c", ZSH, "-"],
)
FILES = ["one.mov", "out.mov"]


def expected():
    """What is offered for each command line."""
    usage = {name: runs.run(name).err for name in ("clipjoin", "clipstak", "cliptune", "clipinfo")}
    help_text = runs.run("clipstak", "-transparency-mode", "help").err
    modes = re.findall(r"^-transparency-mode (\S+)", help_text, re.M)
    lines = {
        "clipjoin -clipstak one.mov -pl": ["-placeAt"],
        "cliptune -timescale -": ["-sameAsTrack"],
        "clipinfo -": set(re.findall(r"(?<=[ \[])-[a-zA-Z]+", usage.pop("clipinfo"))),
        "clipinfo one.mov -same out.mov -tr": ["-trimTo"],
        "clipstak one.mov -transparency-mode ": [*modes, "help"],
    }
    for command, text in usage.items():
        lines[f"{command} -"] = re.findall(r"^ {3,4}(-[a-z][^ \n]*)", text, re.M)
    for words in (
        "clipjoin", "clipjoin -list", "cliptune one.mov -o", "clipjoin -scaleToLengthOfMovie",
        "cliptune -chapter-tool-xml", "clipinfo", "clipinfo -svg", "clipinfo -same one.mov -from",
    ):  # fmt: skip
        lines[f"{words} o"] = FILES
    # Nothing is offered if the value cannot be completed.
    valued = re.findall(r"^ {3,4}(-[a-z]\S*) (?:[a-z]\w*|X Y)(?: |$)", usage["clipstak"], re.M)
    known = "^-o$|xml$|LengthOfMovie$|-mode$|^-timescale$"
    options = [f"clipstak {option}" for option in valued if not re.search(known, option)]
    others = ["clipjoin -add-chapter name", "clipstak -transparency-mode blend", "clipinfo -startAt"]
    lines |= {f"{words} ": [] for words in options + others}
    return {line: sorted(set(offered)) for line, offered in lines.items()}


class Completion(runs.RunTest):
    def test_each_shell_offers_what_belongs_there(self):
        lines = expected()
        self.assertGreater(len(lines), 45)
        for name in (*FILES, "two words.mov"):
            (self.folder / name).touch()
        path = f"{runs.BIN}:{os.environ['PATH']}"
        environment = {**os.environ, "PATH": path, "HOME": str(self.folder)}
        for shell in SHELLS:
            # On a busy machine, the line editor of zsh loses a tab if more is typed right after it.
            for _ in range(3):
                done = subprocess.run(
                    [*shell, runs.ROOT / "completions", *lines], cwd=self.folder, env=environment,
                    stdout=subprocess.PIPE, text=True, timeout=60,
                )  # fmt: skip
                offered = {}
                for answer in done.stdout.split("= ")[1:]:
                    line, *words = answer.splitlines()
                    offered[line] = sorted(set(words) - {""})
                if offered == lines:
                    break
            self.assertEqual(offered, lines, shell[0])


if __name__ == "__main__":
    runs.main()
