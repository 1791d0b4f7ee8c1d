"""The generator of tables and categories: what it must not misread in silence."""
import pathlib
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[4]
GENERATOR = ROOT / "components/system/script/generate.py"
INTERFACE = """// A thing.
#pragma once

/// What it is.
{notes}class {name} : public {base} {{
 public:
  static constexpr nsIID kIID = "12345678-1234-1234-1234-123456789abc"_iid;
{body}
 protected:
  ~{name}() = default;
}};
"""
CLASS = """class {name} final : public nsIThing {{
  static constexpr nsModuleClass kModuleClass{{
      .mRow = {row}, .mCID = "{row:08}-1234-1234-1234-123456789abc"_iid, .mContractID = "@t/{name};1"{more}}};
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfo<"{name}", nsIThing, nsIObserver>(kModuleClass.mCID);
}};
"""


class GeneratorTest(unittest.TestCase):
    def setUp(self):
        self.place = tempfile.TemporaryDirectory()
        self.root = pathlib.Path(self.place.name)
        (self.root / "public").mkdir()
        (self.root / "src").mkdir()

    def tearDown(self):
        self.place.cleanup()

    def interface(self, body="", notes="", name="nsIThing", base="nsISupports"):
        (self.root / f"public/{name}.h").write_text(INTERFACE.format(body=body, notes=notes, name=name, base=base))

    def module_class(self, name, row, more=""):
        (self.root / f"src/{name}.h").write_text(CLASS.format(name=name, row=row, more=more))

    def run_it(self):
        return subprocess.run([sys.executable, "-B", GENERATOR, self.root / "public", self.root / "src",
                               ROOT / "host/xpcom/public/platform.def", self.root / "out"], capture_output=True, text=True)

    def made(self):
        done = self.run_it()
        self.assertEqual(done.returncode, 0, done.stderr)
        text = "\n".join(p.read_text() for p in sorted((self.root / "out").iterdir()))
        return " ".join(text.split())

    def assert_stops(self, why):
        done = self.run_it()
        self.assertNotEqual(done.returncode, 0)
        self.assertIn(why, done.stderr)
        self.assertNotIn("Traceback", done.stderr)

    def test_a_setter_without_its_getter_becomes_an_attribute(self):
        self.interface("  virtual nsresult SetAlone(bool aOn) = 0;\n  virtual nsresult GetBoth(bool* aOn) = 0;\n"
                       "  virtual nsresult SetBoth(bool aOn) = 0;\n  virtual nsresult GetTwo(bool* aA, bool* aB) = 0;\n"
                       "  virtual nsresult GetDCD(bool* aOn) = 0;")
        text = self.made()
        for line in ('nsMethod<"setAlone", &nsIThing::SetAlone, "aOn">',
                     'nsAttribute<"both", &nsIThing::GetBoth, &nsIThing::SetBoth>',
                     'nsMethod<"getTwo", &nsIThing::GetTwo, "aA", "aB">', 'nsAttribute<"DCD", &nsIThing::GetDCD>'):
            self.assertIn(line, text)

    def test_a_length_or_a_hint_is_lost(self):
        self.interface("  virtual nsresult GetBytes(uint32_t* aCount, uint8_t** aBytes) = 0;\n"
                       "  // script: aText[aSize], aLimit?\n"
                       "  virtual nsresult Put(int32_t aSize, int32_t aLimit, const char* aText) = 0;\n"
                       "  /// What it does.\n  // script: as take\n  virtual nsresult TakeIt(nsIFile* aFile) = 0;")
        text = self.made()
        self.assertIn('nsMethod<"getBytes", &nsIThing::GetBytes, "aCount", "aBytes[aCount]">', text)
        self.assertIn('nsMethod<"put", &nsIThing::Put, "aSize", "aLimit?", "aText[aSize]">', text)
        self.assertIn('nsMethod<"take", &nsIThing::TakeIt, "aFile">', text)
        self.assertIn('{"nsIThing", "TakeIt", "What it does."}', text)
        self.assertIn('#include "nsIFile.h"', text)

    def test_a_face_lacks_an_operation_of_its_parent_or_calls_a_kept_place(self):
        self.interface("  virtual nsresult OnFirst(bool aOn) = 0;\n  virtual nsresult Reserved4(void* aFirst) = 0;",
                       name="nsIThingListener")
        self.interface("  virtual nsresult OnSecond() = 0;", name="nsIThingListener2", base="nsIThingListener")
        text = self.made()
        face = text[text.index("class nsIThingListener2Face"):]
        face = face[:face.index("};")]
        self.assertIn('this->Call<"onFirst", &nsIThingListener::OnFirst>(aOn)', face)
        self.assertIn("nsresult Reserved4(void*) override { return NS_ERROR_NOT_IMPLEMENTED; }", face)
        self.assertIn('this->Call<"onSecond", &nsIThingListener2::OnSecond>()', face)

    def test_what_is_not_understood_is_passed_over(self):
        for body, notes, why in (("  // script: leaveout\n  virtual nsresult Do() = 0;", "", "'leaveout' is not understood"),
                                 ("  // script: aNone[aCount]\n  virtual nsresult Do() = 0;", "", "is not understood"),
                                 ("  virtual void Do() = 0;", "", "has not the form"),
                                 ("  virtual nsresult Do(nsINobody* aThing) = 0;", "", "no known interface"),
                                 ("", "// script: globl Thing\n", "is not understood")):
            with self.subTest(why=why, body=body):
                self.interface(body, notes)
                self.assert_stops(why)

    def test_rows_are_out_of_order_or_two_share_one(self):
        self.interface(notes="// script: global Thing, row 1\n")
        self.interface(notes="// script: global Other\n", name="nsIOther")
        self.interface(notes="// script: global First, row 0\n", name="nsIFirst")
        self.module_class("kCIExtension", 9)
        self.module_class("Late", 7, ', .mIsService = true, .mDOMRow = 0, .mGlobal = "late", .mAtStartup = true')
        self.module_class("Early", 2, ", .mDOMRow = 1")
        text = self.made()
        self.assertIn("List< Early, Late, kCIExtension>", text)
        places = [text.index(row) for row in (
            '{"JavaScript-DOM-class", "Late", "@t/kCIExtension;1"}', '{"JavaScript-DOM-class", "Early", "@t/kCIExtension;1"}',
            '{"app-startup", "Late", "service,@t/Late;1"}', '{"JavaScript-global-property", "late", "@t/Late;1"}',
            '{"JavaScript-DOM-interface", "First",', '{"JavaScript-DOM-interface", "Thing",',
            '{"JavaScript-DOM-interface", "Other",', '{nullptr, nullptr, nullptr}')]
        self.assertEqual(places, sorted(places))
        self.assertIn("declare const late: nsIThing & nsIObserver;", text)
        self.module_class("Again", 7)
        self.assert_stops("two classes have one row")

    def test_a_class_info_of_all_misses_an_interface(self):
        self.interface()
        place = self.root / "src/Whole.h"
        text = CLASS.format(name="Whole", row=1, more=', .mDOMRow = 0, .mGlobal = "whole"')
        text = text.replace('NS_ClassInfo<"Whole", nsIThing, nsIObserver>', 'NS_ClassInfoOfAll<"Whole", nsImplementsWith>')
        place.write_text(text.replace("public nsIThing", "public nsImplements<Whole, nsIThing,\n  nsIObserver>"))
        self.module_class("kCIExtension", 9)
        self.assertIn("declare const whole: nsIThing & nsIObserver;", self.made())
        place.write_text(text)
        self.assert_stops("has no nsImplements")


unittest.main()
