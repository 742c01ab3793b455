#!/usr/bin/env python3
"""The layer check finds what it is there to find, in small trees made for it."""
import tempfile
import unittest
from pathlib import Path

import check_layers


class CheckLayers(unittest.TestCase):
    def problems(self, files):
        with tempfile.TemporaryDirectory() as folder:
            root = Path(folder)
            for name, text in {"include/ruvell/rv_base.h": "", **files}.items():
                path = root / name
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(text)
            return list(check_layers.problems(root))

    def expect(self, files, text):
        found = self.problems(files)
        self.assertEqual(len(found), 1, found)
        self.assertIn(text, found[0])

    def test_own_floor_lower_floors_and_public_headers_are_accepted(self):
        self.assertEqual(self.problems({
            "core/src/msg.h": '#include "rv_base.h"\n#include <stdio.h>\n#include <atomic>\n',
            "core/src/shash.cpp": '#include "msg.h"\n',
            "core/src/objects/sphere.cpp": '#include "msg.h"\n',
        }), [])

    def test_an_upward_include_is_refused(self):
        self.expect({"core/src/objects/objects.h": "",
                     "core/src/msg.cpp": '\n  #  include "objects/objects.h"\n'},
                    'msg.cpp:2: "objects/objects.h" is above')

    def test_a_public_header_may_not_include_an_internal_one(self):
        self.expect({"core/src/msg.h": "", "include/ruvell/rv_msg.h": '#include "msg.h"\n'},
                    'rv_msg.h:1: "msg.h" is above')

    def test_a_cycle_between_headers_is_refused(self):
        self.expect({"core/src/list.h": '#include "hash.h"\n', "core/src/hash.h": '#include "msg.h"\n',
                     "core/src/msg.h": '#include "list.h"\n'},
                    "hash.h -> msg.h -> list.h -> hash.h")

    def test_a_module_of_no_floor_is_refused(self):
        self.expect({"core/src/gadget.cpp": ""}, "add it to FLOORS in tests/abi/check_layers.py")

    def test_an_operating_system_header_is_refused_outside_system(self):
        for header in ("unistd.h", "sys/mman.h", "pthread.h", "dlfcn.h", "dirent.h"):
            text = f"#include <{header}>\n"
            self.expect({"core/src/msg.cpp": text}, f"<{header}> belongs behind core/src/system/")
            self.assertEqual(self.problems({"core/src/system/clock.cpp": text}), [])

    def test_an_empty_tree_is_refused(self):
        with tempfile.TemporaryDirectory() as folder:
            self.assertEqual(list(check_layers.problems(Path(folder))), [f"no sources below {folder}"])

    def test_a_header_that_is_not_found_is_refused(self):
        self.expect({"core/src/objects/objects.h": "",
                     "core/src/objects/cone.cpp": '#include "objects.h"\n'},
                    '"objects.h" is neither a public header nor a path below core/src')


if __name__ == "__main__":
    unittest.main()
