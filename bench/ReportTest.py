"""What the report says of rows and draws of points; run by ctest -L bench."""

import pathlib
import sys
import tempfile
import unittest
import xml.dom.minidom

sys.dont_write_bytecode = True
import Plot
import Report


def row(ratio, limit=1.25):
    return {"row": "null call", "against": "raw sockets", "ours": 13.5, "peer": 10.0, "ratio": ratio, "limit": limit,
            "unit": "us"}


class Table(unittest.TestCase):
    def test_a_ratio_at_its_limit_is_reached(self):
        self.assertEqual(Report.cells(row(1.25)),
                         ["null call", "raw sockets", "13.50 us", "10.00 us", "1.250", "1.25", "yes"])

    def test_a_ratio_beyond_its_limit_is_said_in_both_tables(self):
        self.assertIn("NO", Report.text_table([row(1.35)]))
        section = Report.rows_section([row(1.35)])
        self.assertIn("| 1.350 | 1.25 | **no** |", section)
        self.assertTrue(section.endswith("Not reached: null call."))

    def test_a_ratio_that_only_rounds_to_its_limit_is_not_reached(self):
        self.assertEqual(Report.cells(row(1.2501))[-1], "NO")

    def test_a_difference_has_its_unit(self):
        start = {"row": "kvinv --version", "against": "an empty C++ program", "ours": 1.5, "peer": 0.7, "more": 0.8,
                 "limit": 2, "unit": "ms"}
        self.assertEqual(Report.cells(start)[2:], ["1.500 ms", "0.700 ms", "+0.80 ms", "+2.00 ms", "yes"])

    def test_figures_are_put_between_their_marks_and_nowhere_else(self):
        page = "before\n<!-- table: written by scripts/bench -->\nold\n<!-- end of table -->\nafter\n"
        self.assertEqual(Report.replace(page, "table", "new"),
                         "before\n<!-- table: written by scripts/bench -->\n\nnew\n\n<!-- end of table -->\nafter\n")

    def test_a_page_without_the_marks_ends_the_report(self):
        with self.assertRaises(SystemExit):
            Report.replace("no marks", "table", "new")

    def test_the_page_has_every_mark(self):
        for name in ("machine", "table", "others"):
            Report.replace(Report.DOCUMENT.read_text(), name, "")


class Charts(unittest.TestCase):
    def draw(self):
        panel = Plot.Panel("a < b", "x", "y", [("one & two", [(1000, 10.0), (1000000, 40.0)])], logarithmic=True)
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "chart.svg"
            Plot.write(path, "title", [panel])
            return path.read_text()

    def test_a_chart_is_well_formed_and_the_same_each_time(self):
        xml.dom.minidom.parseString(self.draw())
        self.assertEqual(self.draw(), self.draw())

    def test_a_point_stands_where_its_numbers_say(self):
        self.assertIn('<polyline points="58,234.5 842,68" ', self.draw())

    def test_steps_are_round_and_reach_beyond_the_largest_value(self):
        self.assertEqual(Plot.nice_steps(40), [0, 10, 20, 30, 40])
        self.assertEqual(Plot.nice_steps(170), [0, 50, 100, 150, 200])


if __name__ == "__main__":
    unittest.main()
