// Values on their way between script and compiled code.
#include "nsScriptTest.h"

namespace {

class ScriptConversion : public nsScriptTest {};

TEST_F(ScriptConversion, NumberThatDoesNotFitIsCutOff) {
  EXPECT_EQ("255", Run("thing.count = 255; thing.count"));
  for (const char* value : {"256", "-1", "1.5", "NaN", "Infinity", "1e300"})
    EXPECT_EQ(
        "TypeError: nsITestThing.count: a whole number from 0 to 255 is expected, not the number " +
            Run("String(" + std::string(value) + ")"),
        Thrown("thing.count = " + std::string(value)));
  EXPECT_EQ("255", Run("thing.count"));
}

TEST_F(ScriptConversion, OtherValueIsTakenForANumber) {
  for (const char* value :
       {"'7'", "null", "undefined", "true", "[7]", "{ valueOf() { return 7 } }", "7n", "Symbol()"})
    EXPECT_TRUE(Thrown("thing.count = (" + std::string(value) + ")")
                    .starts_with("TypeError: nsITestThing.count: a whole"))
        << value;
}

TEST_F(ScriptConversion, BigNumberLosesDigits) {
  EXPECT_EQ("{ signedBack: -9223372036854775808n, unsignedBack: 18446744073709551615n }",
            Run("thing.echo64(-(2n ** 63n), 2n ** 64n - 1n)"));
  EXPECT_EQ("{ signedBack: 9007199254740991, unsignedBack: 0 }",
            Run("thing.echo64(9007199254740991, -0)"));
  EXPECT_EQ(
      "TypeError: nsITestThing.echo64: argument 1 (signed): a whole number or BigInt of 64 bits is "
      "expected, not the "
      "number 9007199254740992",
      Thrown("thing.echo64(2 ** 53, 0)"));
  EXPECT_TRUE(Thrown("thing.echo64(2n ** 63n, 0)").starts_with("TypeError"));
  EXPECT_TRUE(Thrown("thing.echo64(0, -1n)").starts_with("TypeError"));
}

TEST_F(ScriptConversion, StringLosesUnits) {
  // Half a surrogate pair, a zero, and what has no short form.
  EXPECT_EQ(
      "true",
      Run("const odd = 'a\\uD800\\0\\u20AC\\u{1F600}'; thing.label = odd; thing.label === odd"));
  EXPECT_EQ("true", Run("thing.label = ''; thing.label === ''"));
  EXPECT_EQ(
      "true",
      Run("const long = 'x\\u20AC'.repeat(100000); thing.label = long; thing.label === long"));
  EXPECT_EQ("true", Run("thing.echoUtf8('\\u20AC\\u{1F600}\\0z') === '\\u20AC\\u{1F600}\\0z'"));
  EXPECT_EQ(
      "TypeError: nsITestThing.echoUtf8: argument 1 (text): the string has half a surrogate pair, "
      "which UTF-8 can't hold",
      Thrown("thing.echoUtf8('a\\uDC00')"));
  EXPECT_EQ(
      "TypeError: nsITestThing.echoChars: argument 1 (text): the string has a zero in it, where it "
      "would be cut off",
      Thrown("thing.echoChars('a\\0b')"));
  EXPECT_EQ("true",
            Run("thing.echoChars('\\u00e9') + thing.echoWide('\\u00e9') === '\\u00e9\\u00e9'"));
}

TEST_F(ScriptConversion, NullStringIsEmptyText) {
  EXPECT_EQ("null null", Run("String(thing.echoChars(null)) + ' ' + thing.echoWide(null)"));
  EXPECT_EQ("null", Run("thing.echoUtf8(null)"));
  EXPECT_EQ("TypeError: nsITestThing.label: a string is expected, not undefined",
            Thrown("thing.label = undefined"));
}

TEST_F(ScriptConversion, TextIsReadBeyondItsEnd) {
  const std::string stream =
      "const s = Components.classes['@mozilla.org/io/string-input-stream;1']"
      ".createInstance(Components.interfaces.nsIStringInputStream); ";
  EXPECT_EQ("3", Run(stream + "s.setData('abc', -1); s.available()"));
  EXPECT_EQ("TypeError: nsIStringInputStream.setData: argument 1 (data): 5000 are to be taken of 3",
            Thrown(stream + "s.setData('abc', 5000)"));
}

TEST_F(ScriptConversion, ArrayIsReadBeyondItsEnd) {
  EXPECT_EQ("[ 3, 2, 1 ]", Run("thing.reverse(3, [1, 2, 3])"));
  EXPECT_EQ("[]", Run("thing.reverse(0, [])"));
  EXPECT_EQ("TypeError: nsITestThing.reverse: argument 2 (bytes): 4 are to be taken of 3",
            Thrown("thing.reverse(4, [1, 2, 3])"));
  EXPECT_EQ(
      "TypeError: nsITestThing.reverse: argument 2 (bytes)[1]: a whole number from 0 to 255 is "
      "expected, not the number 999",
      Thrown("thing.reverse(2, [1, 999])"));
  // A getter that shortens the array while it is read.
  EXPECT_TRUE(Thrown("const a = [1, 2, 3]; Object.defineProperty(a, 0, { get() { a.length = 1; "
                     "return 1 } }); thing.reverse(3, a)")
                  .starts_with("TypeError"));
}

TEST_F(ScriptConversion, MissingArgumentIsTakenForZero) {
  EXPECT_EQ("TypeError: nsITestThing.echo64: argument 2 (unsigned) is missing: 1 was given",
            Thrown("thing.echo64(1)"));
  EXPECT_EQ("TypeError: nsITestThing.addListener: argument 1 (listener) is missing: 0 were given",
            Thrown("thing.addListener()"));
  EXPECT_EQ(
      "TypeError: nsITestThing.addListener: argument 1 (listener): an object that implements "
      "nsITestListener is "
      "expected, not undefined",
      Thrown("thing.addListener(undefined)"));
}

TEST_F(ScriptConversion, WrongObjectReachesCompiledCode) {
  const std::string expected =
      "TypeError: nsITestThing.peer: an object that implements nsITestThing is expected, ";
  EXPECT_EQ(expected + "not an object", Thrown("thing.peer = document"));
  EXPECT_EQ(expected + "and script can't implement that", Thrown("thing.peer = {}"));
  EXPECT_EQ(expected + "not the number 3", Thrown("thing.peer = 3"));
  EXPECT_EQ(
      "TypeError: nsITestThing.label belongs to objects that implement nsITestThing, and was used "
      "on an object",
      Thrown("Object.create(thing).label"));
  EXPECT_TRUE(Thrown("thing.fail.call(document, 1)")
                  .starts_with("TypeError: nsITestThing.fail belongs to"));
  EXPECT_TRUE(Thrown("(0, thing.fail)(1)").starts_with("TypeError: nsITestThing.fail belongs to"));
  EXPECT_TRUE(Thrown("new Proxy(thing, {}).label").starts_with("TypeError"));
  EXPECT_TRUE(Thrown("Object.getPrototypeOf(thing).label").starts_with("TypeError"));
}

TEST_F(ScriptConversion, FailedResultIsLost) {
  EXPECT_EQ("2147746065 NS_ERROR_NOT_AVAILABLE nsITestThing.fail true",
            Run("try { thing.fail(0x80040111) } catch (e) { `${e.result} ${e.name} ${e.method} "
                "${e.stack.includes('test.js:1')}` }"));
  EXPECT_EQ("nsITestThing.fail (0x80040111)", Thrown("thing.fail(0x80040111)"));
  EXPECT_EQ("nsITestThing.fail", Thrown("thing.fail(0x80990099)"));
  EXPECT_EQ("", Run("thing.fail(1)"));
  EXPECT_EQ("true", Run("try { thing.fail(0x80040111) } catch (e) { e.result === "
                        "Components.results.NS_ERROR_NOT_AVAILABLE }"));
}

TEST_F(ScriptConversion, HiddenOrReadOnlyMemberIsReached) {
  EXPECT_EQ("undefined", Run("typeof thing.hidden"));
  EXPECT_TRUE(Thrown("(() => { 'use strict'; thing.LIMIT = 8 })()").starts_with("TypeError"));
  EXPECT_EQ("7 7", Run("thing.LIMIT + ' ' + Components.interfaces.nsITestThing.LIMIT"));
}

}  // namespace
