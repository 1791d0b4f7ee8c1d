// TypeScript declarations, printed from the tables that the bridge works from.
#include <algorithm>
#include <cctype>

#include "nsScriptHost.h"
#include "nsScriptTables.h"

namespace {

/// Where one goes in, an object of script will do if script can implement the interface.
std::string ObjectType(const nsScriptInterface* aInterface, bool aOut) {
  if (!aInterface) return "any";
  const std::string name(aInterface->mName);
  std::string type = name;
  if (!aOut && aInterface->mImplement) {
    type += " | nsScripted<" + name + ">";
    if (aInterface->mFunction)
      type += " | " + name + "[\"" + std::string(aInterface->mMembers[0].mName) + "\"]";
  }
  return type + " | null";
}

std::string TypeOf(const nsScriptParam& aParam, bool aTakesNull = false) {
  using enum nsScriptType;
  std::string type;
  switch (aParam.mType) {
    case eBool:
      type = "boolean";
      break;
    case eInt64:
    case eUint64:
      type = "number | bigint";
      break;
    case eString:
    case eCString:
      // Null is taken for a text that is not there. Whether one can be missing where it is given,
      // the interface's contract says.
      type = aTakesNull ? "string | null" : "string";
      break;
    case eChars:
    case eWideChars:
      type = aParam.mCounted ? "string" : "string | null";
      break;
    case eID:
      type = "nsIDLike";
      break;
    case eInterface:
      // Of an interface that script does not see, the object is all that can be said.
      type = ObjectType(nsScriptTables::Find(*aParam.mIID), aParam.mOut);
      break;
    case eAnyInterface:
      type = "any";
      break;
    case eValue:
      type = "any";
      break;
    default:
      type = "number";
      break;
  }
  if (!aParam.mArray) return type;
  return type.find(' ') == type.npos ? type + "[]" : "(" + type + ")[]";
}

/// An attribute that is a list always has one; other objects may be missing.
std::string AttributeType(const nsScriptMember& aMember) {
  const nsScriptParam& value = aMember.mParams[0];
  return value.mInterface == "nsIArray" ? std::string(value.mInterface) : TypeOf(value);
}

/// A parameter's name; words of the language get a line behind them.
std::string ParameterName(const nsScriptParam& aParam) {
  static constexpr std::string_view kWords[] = {
      "break",  "case", "catch",      "class",   "const", "continue", "default", "delete",   "do",
      "else",   "enum", "export",     "extends", "false", "finally",  "for",     "function", "if",
      "import", "in",   "instanceof", "new",     "null",  "return",   "super",   "switch",   "this",
      "throw",  "true", "try",        "typeof",  "var",   "void",     "while",   "with"};
  const bool word =
      std::find(std::begin(kWords), std::end(kWords), aParam.mName) != std::end(kWords);
  return std::string(aParam.mName) + (word ? "_" : "");
}

/// What script calls takes null for a text; what script implements is called with texts.
std::string Signature(const nsScriptMember& aMember, bool aTakesNull) {
  std::string in, out;
  size_t outs = 0;
  for (const nsScriptParam& param : aMember.mParams) outs += param.mOut && !param.mIsLength;
  for (const nsScriptParam& param : aMember.mParams) {
    if (param.mIsLength || param.mType == nsScriptType::eContext) continue;
    if (param.mOut) {
      if (!out.empty()) out += "; ";
      out += (outs > 1 ? std::string(param.mName) + ": " : "") + TypeOf(param);
    } else {
      if (!in.empty()) in += ", ";
      in += ParameterName(param) + (param.mOptional ? "?: " : ": ") + TypeOf(param, aTakesNull);
    }
  }
  return "(" + in + "): " + (outs == 0 ? "void" : outs == 1 ? out : "{ " + out + " }");
}

void Comment(std::string& aOut, std::string_view aText, const char* aIndent) {
  if (aText.empty()) return;
  const bool one = aText.find('\n') == aText.npos;
  aOut += aIndent + std::string("/**");
  while (!aText.empty()) {
    const size_t end = std::min(aText.find('\n'), aText.size());
    if (!one) aOut += std::string("\n") + aIndent + " *";
    if (end > 0) aOut += " " + std::string(aText.substr(0, end));
    aText.remove_prefix(std::min(end + 1, aText.size()));
  }
  aOut += one ? " */\n" : std::string("\n") + aIndent + " */\n";
}

/// The C++ name of a member's operation: "label" and "getLabel" have the letter after Get large.
std::string Operation(const char* aPrefix, std::string_view aName) {
  std::string name = aPrefix + std::string(aName);
  char& first = name[std::string_view(aPrefix).size()];
  first = static_cast<char>(std::toupper(static_cast<unsigned char>(first)));
  return name;
}

void Print(std::string& aOut, const nsScriptInterface& aInterface) {
  const std::string name(aInterface.mName);
  Comment(aOut, nsScriptTables::Comment(name, ""), "");
  aOut += "interface " + name;
  if (const nsScriptInterface* const parent = nsScriptTables::Parent(aInterface))
    aOut += " extends " + std::string(parent->mName);
  aOut += " {\n";
  for (const nsScriptConstant& constant : aInterface.mConstants)
    aOut += "  readonly " + std::string(constant.mName) + ": " + std::to_string(constant.mValue) +
            ";\n";
  for (const nsScriptMember& member : aInterface.mMembers) {
    std::string comment;
    if (member.mIsAttribute) {
      comment = nsScriptTables::Comment(name, Operation("Get", member.mName));
      const std::string_view set = nsScriptTables::Comment(name, Operation("Set", member.mName));
      if (!set.empty()) comment += (comment.empty() ? "" : "\nSetting: ") + std::string(set);
    } else {
      comment = nsScriptTables::Comment(name, Operation("", member.mName));
    }
    Comment(aOut, comment, "  ");
    const bool takesNull = !aInterface.mImplement;
    const std::string memberName(member.mName);
    if (!member.mIsAttribute) {
      aOut += "  " + memberName + Signature(member, takesNull) + ";\n";
      continue;
    }
    const std::string type = AttributeType(member);
    if (member.mSet && takesNull && type == "string")
      aOut +=
          "  get " + memberName + "(): string;\n  set " + memberName + "(value: string | null);\n";
    else
      aOut += (member.mSet ? "  " : "  readonly ") + memberName + ": " + type + ";\n";
  }
  if (*aInterface.mIID == nsISupports::kIID)
    aOut +=
        "  /** The same object, with the members of the interface; an error when it does not "
        "implement it. */\n"
        "  QueryInterface<T>(iid: nsInterfaceID<T>): this & T;\n";
  if (aInterface.mName == "nsIHostDocument") aOut += "  readonly baseURI: string | null;\n";
  if (aInterface.mName == "nsIArray")
    aOut += "  readonly [index: number]: any;\n  [Symbol.iterator](): Iterator<any>;\n";
  if (aInterface.mName == "nsISimpleEnumerator") aOut += "  [Symbol.iterator](): Iterator<any>;\n";
  if (aInterface.mName == "nsIStringEnumerator" || aInterface.mName == "nsIUTF8StringEnumerator")
    aOut += "  [Symbol.iterator](): Iterator<string>;\n";
  aOut += "}\n\n";
}

constexpr char kHead[] =
    R"TS(// What scripts find in their environment. Made by `vorel --print-types`: do not edit.

/** An interface of Components.interfaces: its identifier, its constants, and the right side of instanceof. */
interface nsInterfaceID<T> extends Function {
  readonly prototype: T;
  readonly name: string;
  readonly number: string;
  [Symbol.hasInstance](value: unknown): value is T;
}
/** What stands for an identifier: an interface, a global name of one, or "{6b1...}". */
type nsIDLike = nsInterfaceID<any> | string | Function;
/** An object of script that implements an interface; what it leaves out does nothing. */
type nsScripted<T> = Partial<Omit<T, keyof nsISupports>> & { QueryInterface?(iid: nsIDLike): unknown };

)TS";

constexpr char kTail[] = R"TS(
interface nsClassOfContract {
  readonly contractID: string;
  getService<T = any>(iid?: nsInterfaceID<T>): T;
  createInstance<T = any>(iid?: nsInterfaceID<T>): T;
}

/** What is thrown for an operation that fails. */
interface nsException extends Error {
  /** The result code, one of Components.results. */
  readonly result: number;
  /** "nsIFoo.bar". */
  readonly method: string;
}

declare const Components: {
  /** By contract ID; an error for one that is not registered. */
  readonly classes: { readonly [contractID: string]: nsClassOfContract };
  readonly interfaces: nsInterfaces;
  readonly results: { readonly [name: string]: number };
  readonly utils: {
    /** Writes an error with its place and stack, as one that nobody caught. */
    reportError(error: unknown): void;
    forceGC(): void;
  };
  /** An error to be thrown by script that implements an interface. */
  Exception: { new (message?: string, result?: number): nsException };
  ID(text: string): string;
  isSuccessCode(result: number): boolean;
};

/** The arguments of the command line that stand behind the application. */
declare const arguments: readonly string[];
declare const document: nsIHostDocument;
declare const window: typeof globalThis;
/** Ends the application: no more script runs. The status is that of the process, from 0 to 255. */
declare function quit(status?: number): never;
declare function setTimeout(callback: (...values: any[]) => void, delay?: number, ...values: any[]): number;
declare function setInterval(callback: (...values: any[]) => void, delay?: number, ...values: any[]): number;
declare function clearTimeout(id: number | undefined): void;
declare function clearInterval(id: number | undefined): void;
declare const console: {
  log(...values: unknown[]): void;
  info(...values: unknown[]): void;
  debug(...values: unknown[]): void;
  dir(...values: unknown[]): void;
  warn(...values: unknown[]): void;
  error(...values: unknown[]): void;
  assert(condition: unknown, ...values: unknown[]): void;
  trace(...values: unknown[]): void;
  group(...values: unknown[]): void;
  groupEnd(): void;
  time(name?: string): void;
  timeEnd(name?: string): void;
};
)TS";

}  // namespace

std::string nsScriptHost::PrintTypes() {
  std::string out = kHead;
  for (const nsScriptInterface* table : nsScriptTables::All()) Print(out, *table);
  out +=
      "/** The interfaces by name. Where one is wanted as a parameter, it is one of these. "
      "*/\ninterface nsInterfaces {\n";
  for (const nsScriptInterface* table : nsScriptTables::All()) {
    const std::string name(table->mName);
    out += "  readonly " + name + ": nsInterfaceID<" + name + ">";
    // Constants stand on the identifier as well as on objects.
    for (const nsScriptInterface* level = table; level; level = nsScriptTables::Parent(*level))
      if (!level->mConstants.empty()) {
        out += " & { ";
        for (const nsScriptConstant& constant : level->mConstants)
          out += "readonly " + std::string(constant.mName) + ": " +
                 std::to_string(constant.mValue) + "; ";
        out += "}";
      }
    out += ";\n";
  }
  return out + "}\n" + kTail + std::string(nsScriptTables::Declarations());
}
