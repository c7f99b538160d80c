#!/usr/bin/env python3
"""Checks the programs' notifications to systemd: that they are ready, once they serve, and that they still work.

    notify_test.py ZUSKUX_HAL ZUSKUX_MANAGER SITE
"""

import os
import pathlib
import signal
import socket
import subprocess
import sys
import tempfile
import unittest

HAL, MANAGER, SITE = sys.argv[1:4]
PATIENCE = 60.0


class NotifyTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix='zuskux-notify-')
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def start(self, words, address, **variables):
        """Starts a program. Returns it and the socket that receives its notifications."""
        ear = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(ear.close)
        ear.bind(address.replace('@', '\0', 1))
        ear.settimeout(PATIENCE)
        program = subprocess.Popen(words, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                   env={**os.environ, 'NOTIFY_SOCKET': address, **variables})
        self.addCleanup(program.wait)
        self.addCleanup(program.kill)
        return program, ear

    def hal(self, name='notify', **variables):
        words = [HAL, '--socket', str(self.folder / 'hal.sock')]
        return self.start(words, str(self.folder / name), **variables)

    def manager(self, address, **variables):
        words = [MANAGER, SITE, '--stay', '--hal', f'unix:{self.folder}/hal.sock',
                 '--control', str(self.folder / 'manager.sock')]
        return self.start(words, address, **variables)

    def connect(self, name):
        with socket.socket(socket.AF_UNIX) as client:
            client.connect(str(self.folder / name))

    def test_a_server_is_ready_when_it_listens(self):
        _, ear = self.hal()
        self.assertEqual(ear.recv(100), b'READY=1')
        self.connect('hal.sock')

    def test_a_manager_is_ready_when_it_answers_status_requests(self):
        self.hal()
        _, ear = self.manager(f'@zuskux-notify-test-{os.getpid()}')
        self.assertEqual(ear.recv(100), b'READY=1')
        self.connect('manager.sock')

    def test_both_keep_notifying_the_watchdog(self):
        for start in (self.hal, lambda **more: self.manager(str(self.folder / 'm'), **more)):
            _, ear = start(WATCHDOG_USEC='100000')
            heard = [ear.recv(100) for _ in range(5)]
            self.assertEqual(heard.count(b'WATCHDOG=1'), 4)

    def test_a_program_that_hangs_stops_notifying(self):
        program, ear = self.hal(WATCHDOG_USEC='100000')
        ear.recv(100)
        program.send_signal(signal.SIGSTOP)
        ear.setblocking(False)
        with self.assertRaises(BlockingIOError):
            while ear.recv(100):
                pass
        ear.settimeout(0.5)
        with self.assertRaises(socket.timeout):
            ear.recv(100)

    def test_a_watchdog_for_another_process_is_ignored(self):
        _, ear = self.hal(WATCHDOG_USEC='100000', WATCHDOG_PID='1')
        self.assertEqual(ear.recv(100), b'READY=1')
        ear.settimeout(0.5)
        with self.assertRaises(socket.timeout):
            ear.recv(100)


if __name__ == '__main__':
    unittest.main(argv=sys.argv[:1])
