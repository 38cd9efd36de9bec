# SPDX-License-Identifier: Apache-2.0
"""Libraries that a program opens as it runs, bound to other definitions of malloc and free than the program."""

import case
from promise import promise

FILES = ("libplugin.so", "$ORIGIN/plugins/libplugin.so")  # both lead on from the library that calls dlopen


class Opening(case.Case):
    def open(self, *arguments, **options):
        """(status, what was printed, whether the library's blocks have headers) of the victim."""
        process = self.run_victim("opening", *arguments, **options)
        status = process.finish()
        return status, process.out, process.err, set(process.said("headed"))

    @promise("A library that is opened with `RTLD_DEEPBIND` is opened without it, so that its calls reach the checker.")
    def test_blocks_cross_the_border_of_a_library(self):
        for call in ("dlopen", "dlmopen"):
            for name in FILES:
                for config in ("", "QUARL_ALL=0"):
                    with self.subTest(call, name=name, config=config):
                        checked = config == ""
                        self.assertEqual(self.open(call, name, config=config), (0, "program\n", "", {int(checked)}))

    @promise("In a program that the checker leaves alone the flag is kept.")
    def test_flag_is_kept_where_no_block_is_the_checkers(self):
        for options in ({"environment": {"QUARL_ONLY": "others"}}, {"preload": False}):
            for call in ("dlopen", "dlmopen"):
                self.assertEqual(self.open(call, FILES[0], **options), (0, "library\n", "", {0}))

    @promise("A program that asks an opened C library for `malloc` or `free` gets the checker's.")
    def test_functions_of_an_opened_library(self):
        for config in ("", "QUARL_ALL=0"):
            self.assert_ends(self.run_victim("by_handle", config=config), "the same\n")
        self.assertEqual(self.run_victim("by_handle", environment={"QUARL_ONLY": "others"}).finish(), 0)

    @promise("So does one with a library that stands in front of other functions of the C library, `syscall` and "
             "`dl_iterate_phdr` among them: it does not hear of what the checker calls.")
    def test_library_in_front_of_other_functions(self):
        in_front, library = self.target.victim("libin_front.so"), self.target.library
        for order in ((in_front,), (in_front, library), (library, in_front)):
            for config in ("", "QUARL_OUTPUT_LOG=1", "QUARL_ALL=0"):
                with self.subTest(order=order, config=config):
                    process = self.run_victim("beside_others", config=config, preload=False,
                                              environment={"LD_PRELOAD": ":".join(map(str, order))})
                    self.assert_ends(process, "objects\n")

    def test_a_namespace_of_its_own_has_its_own_allocator(self):
        for preload in (False, True):
            self.assertEqual(self.open("namespace", FILES[0], preload=preload), (0, "library\n", "", {0}))

    def test_failures_are_told_as_without_the_checker(self):
        ends = [self.open_missing(preload) for preload in (False, True)]
        self.assertEqual(ends[0], ends[1])
        self.assertEqual(ends[0][0], 6)
        self.assertIn("cannot open shared object file", ends[0][2])

    def open_missing(self, preload):
        process = self.run_victim("opening", "dlopen", "libnowhere.so", preload=preload)
        return process.finish(), process.out, process.err


if __name__ == "__main__":
    case.main()
