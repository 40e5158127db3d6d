# SPDX-License-Identifier: Apache-2.0
"""The man page and the completions against the help of every command. They are read as text: the shells need not be there.
Run as: documents_test.py TOOL [unittest arguments]; TOOL may be "EMULATOR;ITS ARGUMENT;...;TOOL"."""

import re
import subprocess
import sys
import unittest

TOOL = list(filter(None, sys.argv[1].split(";")))


def done(*args):
    return subprocess.run([*TOOL, *args], check=True, stdout=subprocess.PIPE, text=True, timeout=120).stdout


class DocumentsTest(unittest.TestCase):
    def test_man_page_and_completions_offer_every_command_and_option(self):
        man, bash, zsh, fish = (done("generate", form) for form in ("man", "bash", "zsh", "fish"))
        man = re.sub(r"^[^.\n].*$", "", man.replace("\\", ""), flags=re.M)  # what options are for may name others
        zsh = re.sub(r"\[[^]]*\]", "", zsh)
        fish = re.sub(r" -s (?=\w)", " -", re.sub(r" -(r|x.*?) -d ", " -d ", fish)).replace(" -l ", " --")
        # Where each has the options and the names of commands: of the tool, and of a command or family of commands.
        whole = (
            (man, r"\.SH OPTIONS(.*?)\.SH", ""),
            (bash, r"-gt .*? words=(.*?)\n", r"-gt .*? words='([a-z -]*?) -"),
            (zsh, r"then _arguments(.*?);", r"\n    '([a-z-]+):"),
            (fish, r"_is'(?! -a)(.*?) -d '", r"_is' -a (\S+)"),
        )
        parts = (
            (man, r"\.SS {}\b(.*?)\.PP", ""),
            (bash, r"\n    '{} '\*\) words=(.*?) ;;", r"\n    '{} '\*\) words='(.*?)'"),
            (zsh, r"\n'{}[ '*]+\) _arguments(.*?) ;;", r"'{}'\) compadd (.*?);"),
            (fish, r"_begins {}'(.*?) -d '", r"_is {}' -a '(.*?)'"),
        )

        def expect_offered(*name):
            page, command = done(*name, "--help"), " ".join(name)
            options = sorted(",".join(re.findall(r"^ +(-\S+)", page, re.M)).split(","))
            below = re.findall(r"^  ([a-z-]+) ", page.partition("Subcommands:")[2], re.M)
            for text, *patterns in parts if name else whole:
                offered, listed = (" ".join(re.findall(each.format(command), text, re.S)) for each in patterns)
                if not name or not below:
                    self.assertEqual(sorted(re.findall(r"(?<![\w-])--?\w[\w-]*", offered)), options, (command, patterns))
                self.assertTrue(text == man or not below or listed.split() == below, (command, patterns, listed))
            for each in below:
                expect_offered(*name, each)

        expect_offered()
        self.assertNotIn("generate", man + bash + zsh + fish + done("--help"))
        self.assertIn("motionphoto add still.jpg clip.mp4 -o photo.jpg", done("add", "--help"))


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]])
