#!/usr/bin/env python3
"""The harness itself: reading event reports back from Wine's trace lines
(as Wine 8 writes them) and quoting arguments for a Windows command line."""
import unittest

from winetest import Prefix, decode_debugstr, parse_events, quote_argument

TRACE = r"""0114:fixme:advapi:RegisterEventSourceW ((null),L"Tarnwick Hot Folders"): stub
0114:fixme:advapi:ReportEventW (00000000CAFE4242,0x0004,0x0002,0x00000013,000000000034CB34,0x0001,0x00000000,000000000021FB90,0000000000000000): stub
0120:fixme:advapi:ReportEventW (00000000CAFE4242,0x0004,0x0001,0x00000006,000000000034CB34,0x0000,0x00000000,0000000000000000,0000000000000000): stub
0114:trace:eventlog:ReportEventW L"\"Z:\\work\\TarnwickHotFolder.exe\" -startservice \"a \\\"b c\\\"\" \00e9"
0114:fixme:advapi:ReportEventW (00000000CAFE4242,0x0001,0x0002,0x00000038,000000000034CB34,0x0002,0x00000000,000000000021FAA0,0000000000000000): stub
0114:err:eventlog:ReportEventW L"Tarnwick Hot Folders"
0114:err:eventlog:ReportEventW L"-2147023836"
0118:fixme:advapi:ReportEventW (00000000CAFE4242,0x0004,0x0002,0x00000026,000000000034CB34,0x0002,0x00000000,000000000021FAA0,0000000000000000): stub
0118:trace:eventlog:ReportEventW L"C:\\in\r\n"
0118:trace:eventlog:ReportEventW L"second line"
0118:trace:eventlog:ReportEventW L"report.pdf"
0114:fixme:advapi:DeregisterEventSource (00000000CAFE4242) stub
"""


class TraceReading(unittest.TestCase):
    def test_reports_come_back_with_type_category_id_and_strings(self):
        events = parse_events(TRACE)
        self.assertEqual([(e.event_id, e.type, e.category, e.string_count) for e in events],
                         [(19, 4, 2, 1), (6, 4, 1, 0), (56, 1, 2, 2), (38, 4, 2, 2)])
        self.assertEqual(events[0].strings, ['"Z:\\work\\TarnwickHotFolder.exe" -startservice "a \\"b c\\"" \u00e9'])
        self.assertEqual(events[1].strings, [])
        self.assertEqual(events[2].strings, ["Tarnwick Hot Folders", "-2147023836"])

    def test_a_string_traced_line_by_line_is_joined_again(self):
        self.assertEqual(parse_events(TRACE)[3].strings, ["C:\\in\r\nsecond line", "report.pdf"])

    def test_escapes_and_cut_strings_decode(self):
        self.assertEqual(decode_debugstr(r'L"tab\there \"q\" \\ \0001\d800"'), 'tab\there "q" \\ \x01\ud800')
        self.assertEqual(decode_debugstr('L"abc"...'), "abc...")


class Quoting(unittest.TestCase):
    def test_arguments_are_quoted_only_when_needed(self):
        cases = [
            ("-startservice", "-startservice"),
            ("", '""'),
            ("a b", '"a b"'),
            ('a"b', '"a\\"b"'),
            ("C:\\dir\\", "C:\\dir\\"),
            ("C:\\my dir\\", '"C:\\my dir\\\\"'),
            ('\\\\"x', '"\\\\\\\\\\"x"'),
        ]
        for argument, quoted in cases:
            self.assertEqual(quote_argument(argument), quoted, argument)


class RegistryOfAPrefix(unittest.TestCase):
    def test_values_written_with_reg_add_read_back_and_missing_ones_are_none(self):
        with Prefix.for_test("registry") as prefix:
            key = "HKLM\\Software\\Tarnwick\\AcrobatPath"
            prefix.reg_add(key, data="C:\\Program Files\\Acrobat\\Acrobat.exe")
            prefix.reg_add(key, "Named", "h\u00e9")
            self.assertIn("C:\\Program Files\\Acrobat\\Acrobat.exe", prefix.reg_query(key))
            self.assertIn("h\u00e9", prefix.reg_query(key, "Named"))
            self.assertIsNone(prefix.reg_query(key, "Missing"))
            self.assertIsNone(prefix.reg_query("HKLM\\Software\\Tarnwick\\Absent"))


if __name__ == "__main__":
    unittest.main()
