#!/usr/bin/env python3
"""What the shells offer when the tab key is pressed. Each installed shell is tested."""

import os
import re
import shlex
import subprocess
import unittest

import runs
from runs import BIN, ROOT, has_tools

COMPLETIONS = ROOT / "completions"
COMMANDS = ("clipjoin", "clipstak", "cliptune")

BASH = """
source "$1"
read -ra COMP_WORDS <<<"$2"
[[ $2 == *' ' ]] && COMP_WORDS+=('')
COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
function_of=$(complete -p "${COMP_WORDS[0]}")
function_of=${function_of#*-F }
${function_of% *} "${COMP_WORDS[0]}" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
printf '%s\\n' "${COMPREPLY[@]}"
"""

# An interactive zsh with its own terminal; everything that it offers is written to a file.
ZSH = """
zmodload zsh/zpty
zpty asked 'PS1= TERM=dumb zsh -f -i'
say() { zpty -w asked "$1; print D''ONE"; zpty -r -m asked answer '*DONE*' }
say "fpath=(${(q)1} \\$fpath); autoload -Uz compinit; compinit -u -D; bindkey '^I' list-choices"
say 'compadd() {
  local -a found
  if [[ " $* " != *" -"[OAD]" "* ]]; then
    builtin compadd -A found "$@"; print -rl -- $found >> offered
  fi
  builtin compadd "$@"
}'
zpty -w -n asked "$2"$'\\t\\C-u'
say true
[[ -e offered ]] && cat offered
"""


def usage(command):
    return runs.run(command).err


def options(command):
    """The options that the usage text lists."""
    return set(re.findall(r"^ {3,4}(-[a-z][^ \n]*)", usage(command), re.M))


def valued(command):
    """The options with a value that is not a file name."""
    heads = re.findall(r"^ {3,4}(-[a-z]\S*) ([a-z]+|X)(?: |$)", usage(command), re.M | re.I)
    heads = {option for option, value in heads if value == "X" or value[0].islower()}
    return {option for option in heads if not option.endswith("LengthOfMovie")} - {
        "-o", "-chapter-tool-xml", "-transparency-mode", "-timescale",
    }  # fmt: skip


class Shell:
    """The tests for each shell below; `offers` returns what that shell offers."""

    def setUp(self):
        super().setUp()
        for name in ("one.mov", "out.mov", "two words.mov"):
            (self.folder / name).touch()

    def ask(self, *command):
        environment = {**os.environ, "PATH": f"{BIN}:{os.environ['PATH']}", "HOME": str(self.folder)}
        done = subprocess.run(
            command, cwd=self.folder, env=environment, capture_output=True, text=True, timeout=60
        )
        return sorted(set(done.stdout.splitlines()) - {""})

    def test_offers_the_options_of_the_command(self):
        for command in COMMANDS:
            self.assertEqual(set(self.offers(f"{command} -")), options(command), command)
        self.assertEqual(self.offers("clipjoin -clipstak one.mov -pl"), ["-placeAt"])

    def test_offers_what_clipinfo_takes(self):
        found = set(re.findall(r"(?<=[ \[])-[a-zA-Z]+", usage("clipinfo")))
        self.assertLess({"-svg", "-json", "-startAt"}, found)
        self.assertEqual(set(self.offers("clipinfo -")), found)
        self.assertEqual(self.offers("clipinfo one.mov -same out.mov -tr"), ["-trimTo"])
        for line in ("clipinfo o", "clipinfo -svg o", "clipinfo -same one.mov -from o"):
            self.assertEqual(self.offers(line), ["one.mov", "out.mov"], line)
        self.assertEqual(self.offers("clipinfo -same one.mov -startAt "), [])

    def test_offers_files_and_modes_where_they_belong(self):
        files = ["one.mov", "out.mov"]
        for line in ("clipjoin o", "clipjoin -list o", "cliptune one.mov -o o",
                     "clipjoin -scaleToLengthOfMovie o", "cliptune -chapter-tool-xml o"):  # fmt: skip
            self.assertEqual(self.offers(line), files, line)
        help_text = runs.run("clipstak", "-transparency-mode", "help").err
        modes = re.findall(r"^-transparency-mode (\S+)", help_text, re.M)
        self.assertEqual(len(modes), 5)
        self.assertEqual(self.offers("clipstak one.mov -transparency-mode "), sorted([*modes, "help"]))
        self.assertEqual(self.offers("cliptune -timescale -"), ["-sameAsTrack"])

    def test_offers_nothing_if_the_value_cannot_be_completed(self):
        values = valued("clipstak")
        self.assertGreater(len(values), 25)
        lines = [f"clipstak {option} " for option in self.some(values)]
        lines += ["clipjoin -add-chapter name ", "clipstak -transparency-mode blend "]
        for line in lines:
            self.assertEqual(self.offers(line), [], line)

    def some(self, options):
        return sorted(options)


@has_tools("bash")
class Bash(Shell, runs.RunTest):
    def offers(self, line):
        command = line.split()[0]
        return self.ask("bash", "-c", BASH, "-", COMPLETIONS / "bash" / command, line)


@has_tools("fish")
class Fish(Shell, runs.RunTest):
    def offers(self, line):
        file = COMPLETIONS / "fish" / f"{line.split()[0]}.fish"
        script = f"source {shlex.quote(str(file))}; complete -C{shlex.quote(line)}"
        return [answer.split("\t")[0] for answer in self.ask("fish", "--no-config", "-c", script)]


@has_tools("zsh")
class Zsh(Shell, runs.RunTest):
    def offers(self, line):
        # On a busy machine, the line editor loses the tab if more is typed right after it.
        for _ in range(3):
            (self.folder / "offered").unlink(missing_ok=True)
            found = self.ask("zsh", "-f", "-c", ZSH, "-", COMPLETIONS / "zsh", line)
            if found:
                break
        return found

    def some(self, options):
        return sorted(options)[::8]  # each one starts a new zsh


if __name__ == "__main__":
    runs.main()
