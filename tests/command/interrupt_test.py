"""Stopping a render: real signals, --timeout, and progress on a real pseudo-terminal."""
import fcntl
import json
import os
import pty
import re
import select
import signal
import struct
import subprocess
import termios
import threading
import time
import unittest
from command_case import BALL, PLUGINS, RUVELL, CommandCase

# Minutes of work in small buckets, those with something to see first.
ENDLESS = ["-r", "400x400", "--aa", "60", "-t", "2", "-D", "options.bucket_scanning=spiral"]
# Minutes of work in each row of pixels, where the library looks for requests to stop.
SLOW_ROWS = ["-D", "options.GI_diffuse_depth=3", "-D", "options.GI_diffuse_samples=20",
             "-D", "options.bucket_size=64"]


class Stopping(CommandCase):
    def setUp(self):
        super().setUp()
        # A shell ignores Ctrl-C for what it runs in the background, and the command would too.
        signal.signal(signal.SIGINT, signal.default_int_handler)

    def start(self, *arguments):
        return self.start_command("render", BALL, *arguments)

    def start_command(self, *arguments, **settings):
        process = subprocess.Popen([RUVELL, *arguments], cwd=self.folder, text=True,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, **settings)
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def wait_for(self, process, text):
        for line in process.stderr:
            if text in line:
                return
        self.fail(f"the command ended without saying {text!r}")

    def test_an_interrupt_writes_a_valid_image_and_ends_with_130(self):
        process = self.start(*ENDLESS)
        self.wait_for(process, "rays/pixel")  # the first bucket is done
        process.send_signal(signal.SIGINT)
        self.wait_for(process, "interrupted: finishing the running buckets")
        self.assertEqual(process.wait(timeout=60), 130)
        image = self.png("ball.png")
        self.assertEqual((image.width, image.height), (400, 400))
        self.assertTrue(any(any(row) for row in image.rows), "finished buckets are in the image")

    def test_a_second_interrupt_ends_the_process_at_once(self):
        process = self.start(*ENDLESS, *SLOW_ROWS, "-v")
        self.wait_for(process, "bucket workers of size")
        time.sleep(0.5)
        process.send_signal(signal.SIGINT)
        self.wait_for(process, "Ctrl-C again aborts")
        self.assertTrue(self.part_files(), "or there would be nothing to leave behind")
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(timeout=10), 130)
        self.assertEqual(os.listdir(self.folder), [])

    def part_files(self):
        return [name for name in os.listdir(self.folder) if name.startswith(".part-")]

    def test_other_signals_act_as_an_interrupt(self):
        for number, message in ((signal.SIGTERM, "told to end: finishing"),
                                (signal.SIGHUP, "the terminal is gone: finishing")):
            with self.subTest(number):
                process = self.start(*ENDLESS)
                self.wait_for(process, "rays/pixel")
                process.send_signal(number)
                self.wait_for(process, message)
                self.assertEqual(process.wait(timeout=60), 128 + number)
                self.assertEqual(self.png("ball.png").width, 400)
                self.assertEqual(os.listdir(self.folder), ["ball.png"])

    def test_a_second_signal_of_another_kind_aborts(self):
        process = self.start(*ENDLESS, *SLOW_ROWS, "-v")
        self.wait_for(process, "bucket workers of size")
        process.send_signal(signal.SIGINT)
        self.wait_for(process, "Ctrl-C again aborts")
        process.send_signal(signal.SIGTERM)
        self.assertEqual(process.wait(timeout=10), 143)
        self.assertEqual(os.listdir(self.folder), [])

    def test_ignored_signals_stay_ignored(self):
        process = self.start_command(
            "render", BALL, *ENDLESS,
            preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN))
        self.wait_for(process, "rays/pixel")
        process.send_signal(signal.SIGHUP)
        time.sleep(0.5)
        self.assertIsNone(process.poll())
        process.send_signal(signal.SIGTERM)
        self.assertEqual(process.wait(timeout=60), 143)

    def test_an_interrupted_conversion_leaves_the_older_file(self):
        numbers = "0.25 -1.5 3 " * 1024
        count = 3000  # a second or two to write
        with open(self.path("in.rvs"), "w", encoding="utf-8") as file:
            file.write(f"polymesh\n{{\n name m\n vlist {1024 * count} 1 POINT\n")
            for _ in range(count):
                file.write(numbers + "\n")
            file.write("}\n")
        self.write("out.rvs.gz", "old")
        for number in signal.SIGINT, signal.SIGTERM, signal.SIGHUP:
            with self.subTest(number):
                process = self.start_command("convert", "in.rvs", "out.rvs.gz")
                while process.poll() is None and not self.part_files():
                    time.sleep(0.005)
                process.send_signal(number)
                self.assertEqual(process.wait(timeout=10), 128 + number)
                self.assertEqual(self.read("out.rvs.gz"), b"old")
                self.assertEqual(sorted(os.listdir(self.folder)), ["in.rvs", "out.rvs.gz"])

    def test_an_interrupt_while_loading_ends_the_process(self):
        fifo = self.path("slow.rvs")
        os.mkfifo(fifo)
        process = self.start(fifo)
        with open(fifo, "w", encoding="utf-8"):  # opened once the command reads
            process.send_signal(signal.SIGINT)
            self.assertEqual(process.wait(timeout=10), 130)

    def test_statistics_of_finished_frames_survive_an_interrupt(self):
        with open(BALL, encoding="utf-8") as file:
            self.write("f1.rvs", file.read())
        os.mkfifo(self.path("f2.rvs"))
        process = self.start_command("render", "f#.rvs", "-q", "--frames", "1-2", "-o", "a.#.png",
                                     "--stats-json", "s.json")
        with open(self.path("f2.rvs"), "w", encoding="utf-8"):  # opened in the second frame
            process.send_signal(signal.SIGINT)
            self.assertEqual(process.wait(timeout=10), 130)
        renders = json.loads(self.read("s.json"))["renders"]
        self.assertEqual([(render["frame"], render["result"]) for render in renders],
                         [(1, "finished")])

    def test_an_interrupt_ends_a_sequence_of_frames(self):
        process = self.start(*ENDLESS, "-v", "--frames", "1-3", "-o", "f.#.png")
        self.wait_for(process, "starting 2 bucket workers")
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(timeout=60), 130)
        self.assertTrue(self.exists("f.1.png"))
        self.assertFalse(self.exists("f.2.png"))

    def test_the_timeout_writes_a_valid_image_and_ends_with_124(self):
        start = time.monotonic()
        process = self.start(*ENDLESS, "--timeout", "1500ms")
        _, messages = process.communicate(timeout=60)
        self.assertEqual(process.returncode, 124)
        self.assertIn("out of time: finishing the running buckets", messages)
        self.assertLess(time.monotonic() - start, 40)
        self.assertEqual(self.png("ball.png").width, 400)

    def test_a_short_timeout_is_not_overslept(self):
        self.refuses("render", BALL, "-q", "--frames", "1-3", "-o", "f.#.png", "--timeout", "1ms",
                     code=124, message="out of time")
        self.assertFalse(self.exists("f.3.png"))

    def test_a_timeout_while_the_render_is_prepared_is_no_failure(self):
        for milliseconds in range(1, 16):
            result = subprocess.run([RUVELL, "render", BALL, "--timeout", f"{milliseconds}ms"],
                                    cwd=self.folder, text=True, capture_output=True, timeout=60,
                                    check=False)
            self.assertIn(result.returncode, (0, 124), result.stderr)
            self.assertNotIn("aborted", result.stderr)

    def test_a_timeout_while_loading_is_told(self):
        fifo = self.path("slow.rvs")
        os.mkfifo(fifo)
        process = self.start(fifo, "--timeout", "300ms")
        with open(fifo, "w", encoding="utf-8"):  # opened once the command reads
            _, messages = process.communicate(timeout=10)
        self.assertEqual(process.returncode, 124)
        self.assertEqual(messages, "ruvell: error: out of time\n")

    def test_the_exit_code_is_that_of_the_first_reason_to_stop(self):
        # Rows of pixels that take a moment, so that the signal comes before the end.
        process = self.start(*ENDLESS, "-D", "options.bucket_size=128", "--timeout", "1s")
        self.wait_for(process, "out of time")
        process.send_signal(signal.SIGINT)
        self.wait_for(process, "interrupted")
        self.assertEqual(process.wait(timeout=60), 124)
        self.assertEqual(self.png("ball.png").width, 400)

    def start_that_hangs(self, *arguments, grace="1s"):
        self.write("endless.rvs", "endless_shader { name endless }\n")
        process = self.start("endless.rvs", "-D", "ball.shader=endless", "--plugins", PLUGINS,
                             "--grace", grace, "-v", *arguments)
        self.wait_for(process, "bucket workers of size")
        return process

    def assert_ends_without_image(self, process, code):
        _, messages = process.communicate(timeout=30)
        self.assertEqual(process.returncode, code)
        self.assertIn("error: the render did not end within 0:01 of being told to (see --grace)",
                      messages)
        self.assertEqual(os.listdir(self.folder), ["endless.rvs"])

    def test_a_worker_that_never_returns_is_ended_after_the_grace_of_a_timeout(self):
        self.assert_ends_without_image(self.start_that_hangs("--timeout", "2s"), 124)

    def test_a_worker_that_never_returns_is_ended_after_the_grace_of_a_signal(self):
        for number in signal.SIGINT, signal.SIGTERM:
            with self.subTest(number):
                process = self.start_that_hangs()
                time.sleep(0.3)
                process.send_signal(number)
                self.assert_ends_without_image(process, 128 + number)

    def test_the_grace_is_not_begun_again_by_a_signal_after_the_timeout(self):
        process = self.start_that_hangs("--timeout", "2s", grace="2s")
        self.wait_for(process, "out of time")
        time.sleep(1)
        process.send_signal(signal.SIGINT)
        told = time.monotonic()
        self.assertEqual(process.wait(timeout=30), 124)
        self.assertLess(time.monotonic() - told, 1.8)

    def test_a_timeout_ends_a_command_whose_messages_nobody_reads(self):
        reading, writing = os.pipe()
        self.addCleanup(os.close, reading)
        os.set_blocking(writing, False)
        try:
            while True:
                os.write(writing, b"x" * 4096)
        except BlockingIOError:
            os.set_blocking(writing, True)
        process = subprocess.Popen([RUVELL, "render", BALL, "-v", "--timeout", "1s", "--grace",
                                    "1s"], cwd=self.folder, stderr=writing)
        os.close(writing)
        self.addCleanup(process.kill)
        self.assertEqual(process.wait(timeout=30), 124)
        self.assertEqual(os.listdir(self.folder), [])

    def test_an_image_that_would_take_for_ever_to_write_is_given_up(self):
        process = self.start("-D", "options.xres=999999", "-D", "options.yres=999999", "-D",
                             "options.bucket_size=64", "--timeout", "1s", "--grace", "1s")
        _, messages = process.communicate(timeout=30)
        self.assertEqual(process.returncode, 124, messages)
        self.assertIn("(see --grace); its unfinished images are removed", messages)
        self.assertEqual(os.listdir(self.folder), [])

    def test_a_timeout_that_is_not_reached_changes_nothing(self):
        self.run_command("render", BALL, "--timeout", "1h30m")
        self.assertEqual(self.png("ball.png").width, 64)


class Terminal(CommandCase):
    def run_on_terminal(self, *arguments, columns=100):
        """What the command writes to a terminal, and its exit code."""
        leader, follower = pty.openpty()
        fcntl.ioctl(follower, termios.TIOCSWINSZ, struct.pack("HHHH", 25, columns, 0, 0))
        process = subprocess.Popen([RUVELL, *arguments], cwd=self.folder, stdin=follower,
                                   stdout=follower, stderr=follower)
        os.close(follower)
        output = b""
        while True:
            try:
                if select.select([leader], [], [], 60)[0]:
                    output += os.read(leader, 65536)
            except OSError:  # the other side is closed
                break
        os.close(leader)
        return output.decode(), process.wait(timeout=60)

    def test_progress_is_one_line_renewed_in_place(self):
        output, code = self.run_on_terminal("render", BALL, "-r", "400x300", "--aa", "4")
        self.assertEqual(code, 0)
        self.assertNotIn("\n", output)
        states = [state for state in output.split("\r\x1b[K") if state]
        self.assertGreater(len(states), 5)
        form = re.compile(r"^ *\d+%  \d+ rays/pixel  \d+:\d\d elapsed  (\d+:\d\d|-:--) left$")
        for state in states:
            self.assertRegex(state, form)
        self.assertTrue(output.endswith("\r\x1b[K"), "the line is taken away in the end")

    def test_the_clock_runs_between_the_messages_of_the_library(self):
        output, code = self.run_on_terminal("render", BALL, *ENDLESS, "--timeout", "4s")
        self.assertEqual(code, 124)
        clocks = set(re.findall(r"(\d+:\d\d) elapsed", output))
        self.assertTrue({"0:01", "0:02"} <= clocks, clocks)

    def test_messages_do_not_tear_the_line(self):
        output, _ = self.run_on_terminal("render", BALL, "-v", "--aa", "4")
        for line in output.split("\r\n"):
            visible = line.split("\x1b[K")[-1]
            self.assertNotRegex(visible, r"left.+rendering|% .*render done")

    def test_other_commands_show_what_takes_long(self):
        rows = [("info", "loading slow.rvs"), ("check", "loading the scene")]
        for command, expected in rows:
            with self.subTest(command):
                os.mkfifo(self.path("slow.rvs"))
                feeder = threading.Thread(target=self.feed_slowly, daemon=True)
                feeder.start()
                output, _ = self.run_on_terminal(command, "slow.rvs")
                feeder.join(timeout=60)
                os.remove(self.path("slow.rvs"))
                self.assertIn(f"\r\x1b[K{expected}  0:00 elapsed\r\x1b[K", output)

    def test_a_name_of_two_lines_stays_in_the_line(self):
        os.mkfifo(self.path("slow\n\t.rvs"))
        threading.Thread(target=self.feed_slowly, args=["slow\n\t.rvs"], daemon=True).start()
        output, _ = self.run_on_terminal("info", "slow\n\t.rvs")
        self.assertIn("\r\x1b[Kloading slow??.rvs  0:00 elapsed\r\x1b[K", output)

    def test_quiet_commands_show_nothing(self):
        os.mkfifo(self.path("slow.rvs"))
        threading.Thread(target=self.feed_slowly, daemon=True).start()
        output, _ = self.run_on_terminal("info", "-q", "slow.rvs")
        self.assertNotIn("elapsed", output)

    def feed_slowly(self, name="slow.rvs"):
        with open(self.path(name), "w", encoding="utf-8") as file:
            time.sleep(1)
            file.write("sphere { radius 1 }\n")

    def test_the_line_fits_the_terminal(self):
        output, _ = self.run_on_terminal("render", BALL, columns=20)
        for state in output.split("\r\x1b[K"):
            self.assertLess(len(state), 20)


if __name__ == "__main__":
    unittest.main()
