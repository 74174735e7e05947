#!/usr/bin/env python3
"""scripts/faults finds each kind of fault in commands that have it. Ends with 77 if processes
cannot be traced."""
import pathlib
import subprocess
import sys
import tempfile
import unittest

FAULTS = pathlib.Path(__file__).resolve().parent.parent.parent / "scripts" / "faults"
SKIPPED = 77


def sweep(script):
    """The sweep of a shell, without its children, that is to make `made` of the file `given`."""
    with tempfile.TemporaryDirectory() as folder:
        given = pathlib.Path(folder, "given")
        given.write_text("given\n")
        return subprocess.run(
            [FAULTS, "--limit", "1", "--file", given, "--owes", "made", "--",
             "sh", "-c", script], check=False, stdout=subprocess.PIPE, text=True)


class FaultsTest(unittest.TestCase):
    def test_a_copy_that_fails_with_status_0_is_silent(self):
        result = sweep("cat given >made; true")
        self.assertIn("silent: work/made is missing\n", result.stdout)
        self.assertEqual(result.returncode, 1)

    def test_a_temporary_file_that_stays_is_a_leak(self):
        result = sweep("cat given >/tmp/qz-left && mv /tmp/qz-left made")
        self.assertIn("leak: /tmp/qz-left\n", result.stdout)

    def test_half_of_what_was_asked_for_is_a_leak(self):
        self.assertIn("leak: work/made is half-written\n", sweep("cat given >made").stdout)

    def test_a_process_that_lives_on_is_a_leak(self):
        self.assertIn("leak: living: sleep\n",
                      sweep("cat given >made || { sleep 60 & }").stdout)

    def test_a_run_that_does_not_end_is_a_hang(self):
        self.assertRegex(sweep("cat given >made || sleep 60").stdout,
                         r"hang: did not end \(.*sleep S")

    def test_a_deadly_signal_is_a_crash(self):
        self.assertIn("crash: ended with status -11\n",
                      sweep("cat given >made || kill -SEGV $$").stdout)

    def test_each_finding_says_how_to_come_by_it_again(self):
        self.assertRegex(sweep("cat given >made").stdout,
                         r"\n +strace -f .*-e inject=vfork:error=EAGAIN:when=1 "
                         r"sh -c 'cat given >made'\n")


if __name__ == "__main__":
    if subprocess.run([FAULTS, "--", "true"], check=False,
                      stdout=subprocess.DEVNULL).returncode == SKIPPED:
        sys.exit(SKIPPED)
    unittest.main()
