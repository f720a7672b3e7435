#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What counts as a command of a page."""

import unittest

import commands


def texts(page):
    return [command.text for command in commands.read(page).commands]


class CommandsOfAPage(unittest.TestCase):
    def test_shell_blocks_are_read_and_comments_cut_off(self):
        page = "```sh\ntidewatch info a.laz   # what it is\ncmake --build b\n```\n`tidewatch las`\n"
        self.assertEqual(texts(page), ["tidewatch info a.laz"])

    def test_a_command_may_go_on_over_lines_and_stand_behind_others(self):
        page = "```sh\ntidewatch las a \\\n    -o b.laz\nmkdir out && tidewatch las a -o out/b.laz\n```\n"
        self.assertEqual(texts(page), ["tidewatch las a -o b.laz", "mkdir out && tidewatch las a -o out/b.laz"])

    def test_a_comment_names_another_status(self):
        found = commands.read("```sh\ntidewatch las a -o b   # status 2: too few\ntidewatch info a\n```\n").commands
        self.assertEqual([command.status for command in found], [2, 0])
        self.assertEqual([command.line for command in found], [2, 3])

    def test_sections_stand_for_themselves(self):
        found = commands.read("```sh\ntidewatch info a\n```\n## B\n### C\n```sh\ntidewatch info b\n```\n").commands
        self.assertEqual([command.section for command in found], [0, 1])

    def test_tables_are_read_on_request_only(self):
        table = "| it | ours |\n|---|---|\n| x | `tidewatch info a \\| sort` |\n"
        self.assertEqual(texts(table), [])
        self.assertEqual(texts("<!-- run: tables -->\n" + table), ["tidewatch info a | sort"])

    def test_marked_blocks_are_left_out(self):
        page = commands.read("<!-- not run: needs a network -->\n```sh\ntidewatch info a\n```\n")
        self.assertEqual(page.commands, [])
        self.assertEqual([reason for _, reason in page.left_out], ["needs a network"])

    def test_pages_that_would_hide_commands_are_refused(self):
        for page in ("```\ntidewatch info a\n```\n",
                     "```sh\ntidewatch info a\n",
                     "<!-- not run: why -->\n```sh\ncmake --version\n```\n",
                     "<!-- run: tables -->\n| a |\n"):
            with self.assertRaises(commands.PageError, msg=page):
                commands.read(page)

    def test_synopses_and_pictures_are_no_commands(self):
        self.assertEqual(texts("```\ntidewatch las [OPTION]... INPUT... -o OUTPUT\n```\n"), [])
        self.assertEqual(texts("```\ntidewatch (host/) -> library\n```\n"), [])

    def test_examples_of_help_are_read(self):
        found = commands.help_examples("Usage\n\nExamples:\n  tidewatch info a\n  tidewatch info b\n")
        self.assertEqual([command.text for command in found], ["tidewatch info a", "tidewatch info b"])
        with self.assertRaises(commands.PageError):
            commands.help_examples("Usage\n")


if __name__ == "__main__":
    unittest.main()
