#!/usr/bin/env python3
"""TarnwickHotFolder.exe run for real under Wine, in a prefix where the
service "Tarnwick Hot Folders" is not installed: what the process entry
reports and how the process ends."""
import unittest

from winetest import Prefix

INFORMATION = 4
ERROR = 1
CATEGORY_SERVICE = 1
CATEGORY_USER = 2


class EntryWithoutTheService(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.prefix = Prefix.for_test("entry_without_service")
        cls.prefix.start()

    @classmethod
    def tearDownClass(cls):
        cls.prefix.stop()

    def assertEvent(self, event, event_id, event_type, category, strings):
        self.assertEqual((event.event_id, event.type, event.category, event.strings),
                         (event_id, event_type, category, strings), event)

    def test_start_service_logs_the_command_line_then_that_the_service_is_missing(self):
        run = self.prefix.run(self.prefix.executable, "-startservice")

        # StartServiceW was never reached: the exit code is its "failed" 0.
        self.assertEqual(run.exit_code, 0)
        self.assertEqual(run.event_ids(), [19, 56], run.events)
        launched, failed = run.events
        self.assertEvent(launched, 19, INFORMATION, CATEGORY_USER, [run.command_line])
        self.assertEvent(failed, 56, ERROR, CATEGORY_USER, ["Tarnwick Hot Folders", "1060"])

    def test_raw_command_line_is_logged_exactly_as_the_process_got_it(self):
        line = f'"{self.prefix.executable}"   -StartService  "a \\"b\\" c" h\u00e9'
        run = self.prefix.run_command_line(line)

        self.assertEqual(run.exit_code, 0)
        self.assertEqual(run.event_ids(), [19, 56], run.events)
        self.assertEqual(run.events[0].strings, [line])

    def test_service_path_without_registration_fails_with_the_registrys_error(self):
        # No switch: the service path. Nothing is registered, so the AppID the
        # module reads to choose between service and local server is missing
        # (2): message 58 under category 1, and the process ends with that code
        # once the supervisor has ended.
        run = self.prefix.run(self.prefix.executable, timeout=120)

        self.assertEqual(run.exit_code, 2)
        self.assertEqual(run.event_ids()[0], 19, run.events)
        self.assertEvent(run.events[0], 19, INFORMATION, CATEGORY_USER, [run.command_line])
        self.assertIn(58, run.event_ids(), run.events)
        failed = run.events[run.event_ids().index(58)]
        self.assertEvent(failed, 58, ERROR, CATEGORY_SERVICE, ["2"])


if __name__ == "__main__":
    unittest.main()
