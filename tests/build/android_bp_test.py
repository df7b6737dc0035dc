"""What android_bp.py makes of Android.bp files that differ from CMake's lists, and of odd ones."""
import pathlib
import tempfile
import unittest

import android_bp

BLUEPRINT = """
// a comment with a "quote" and a {
common = ["audio/a.cpp",] /* over
two lines */ + ["audio/zyl/b.cpp"]
vendor_sources = ["host/vendor/utils/wake_lock.cpp"]
cc_defaults { name: "settings", vendor: true, cflags: ["-DX=\\"//\\""], nested: { a: { b: 1 } } }
filegroup { name: "shared_tests", srcs: ["tests/support/fake.cpp"] }
cc_library_shared { name: "libsoundtrigger_hal", defaults: ["settings"], srcs: common }
cc_test {
    name: "soundtrigger_hal_test",
    srcs: common + [":shared_tests", "tests/product/x_test.cpp"],
}
cc_defaults {
    name: "fuzz_defaults",
    defaults: ["settings"],
    srcs: common + vendor_sources + ["fuzz/fuzz.cpp", "fuzz/scripted_nodes.cpp"],
}
cc_fuzz { name: "soundtrigger_hal_fuzz_dump", defaults: ["fuzz_defaults"], srcs: ["fuzz/dump.cpp"] }
cc_fuzz {name:"soundtrigger_hal_fuzz_tuning",defaults:["fuzz_defaults"],srcs:["fuzz/tuning.cpp"]}
"""

CMAKE = {
    "audio": """
        # not_a_source.cpp (
        set(LIST
            a.cpp zyl/b.cpp)  # Why.
        add_library(sound_trigger_objects OBJECT ${LIST})""",
    "host/vendor": "add_library(vendor_audio_utils SHARED utils/file.cpp utils/wake_lock.cpp)",
    "tests/product": "sthal_test(hal_test SOURCES ../support/fake.cpp x_test.cpp LIBS internals)",
    "fuzz": """
        foreach(original one two)
            foreach(inner ${original})
            endforeach()
        endforeach()
        foreach(name dump
                tuning)
            add_executable(fuzz_${name} ${name}.cpp fuzz.cpp)
        endforeach()""",
}


class AndroidBpTest(unittest.TestCase):
    def differences(self, blueprint=BLUEPRINT, **cmake):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            for name, text in {**CMAKE, **cmake}.items():
                (root / name).mkdir(parents=True, exist_ok=True)
                (root / name / "CMakeLists.txt").write_text(text)
            for source in android_bp.Blueprint(BLUEPRINT).modules:
                for name in source[1].get("srcs", []):
                    if not name.startswith(":"):
                        (root / name).parent.mkdir(parents=True, exist_ok=True)
                        (root / name).touch()
            (root / "Android.bp").write_text(blueprint)
            return android_bp.differences(root)

    def test_same_lists_in_other_words_are_the_same(self):
        self.assertEqual([], self.differences())

    def test_source_that_only_one_of_the_two_has_is_named(self):
        self.assertEqual(
            ["soundtrigger_hal_test: tests/product/new_test.cpp is only in CMake's list",
             "soundtrigger_hal_test: tests/product/x_test.cpp is only in Android.bp"],
            self.differences(
                **{"tests/product": "sthal_test(hal_test SOURCES ../support/fake.cpp new_test.cpp)"}))

    def test_every_module_with_the_common_list_is_told(self):
        found = self.differences(BLUEPRINT.replace('["audio/a.cpp",]', '["audio/c.cpp"]'))
        self.assertEqual(3, found.count("soundtrigger_hal_test: audio/c.cpp is only in Android.bp") +
                         found.count("libsoundtrigger_hal: audio/a.cpp is only in CMake's list") +
                         found.count("soundtrigger_hal_fuzz_dump: there is no file audio/c.cpp"))

    def test_source_listed_twice_is_told(self):
        self.assertEqual(
            ["soundtrigger_hal_test: tests/support/fake.cpp is in Android.bp twice"],
            self.differences(BLUEPRINT.replace('[":shared_tests",',
                                               '[":shared_tests", "tests/support/fake.cpp",')))

    def test_module_that_only_one_of_the_two_has_is_named(self):
        renamed = BLUEPRINT.replace("hal_fuzz_dump", "hal_fuzz_dumps")
        self.assertEqual(
            ["Android.bp: there is no module 'soundtrigger_hal_fuzz_dump', but CMake builds its "
             "sources", "soundtrigger_hal_fuzz_dumps: is only in Android.bp"],
            self.differences(renamed))

    def test_what_cannot_be_read_is_no_success(self):
        for blueprint in ('cc_test { name: "x", srcs: [ }', "cc_test {", "@", "a = b",
                          'cc_test { name "x" }'):
            with self.subTest(blueprint), self.assertRaises(android_bp.Malformed):
                self.differences(blueprint)
        with self.assertRaises(android_bp.Malformed):
            self.differences(audio="add_library(renamed OBJECT a.cpp)")


if __name__ == "__main__":
    unittest.main()
