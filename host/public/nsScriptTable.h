// Binding tables: what script sees of an interface, one line a member, without any engine.
//
//   constexpr auto kAdapter = nsBind<nsISystemAdapter,
//       nsAttribute<"label", &nsISystemAdapter::GetLabel>,
//       nsMethod<"connect", &nsISystemAdapter::Connect, "aPeer", "aTimeout?">,
//       nsLeftOut<&nsISystemAdapter::Reserved7>>();
//
// Direction and type of a parameter follow from its C++ type: values, const references and single
// pointers to interfaces go in; pointers to values, references to strings and double pointers come
// out. What a type can't tell stands in the parameter's name: "aList[aCount]" is an array (or a
// counted string) whose length is aCount, and "aTimeout?" may be left out by the caller. A void**
// is an interface; which one, the nearest identifier before it says. Whatever does not fit does not
// compile.
#pragma once

#include <array>
#include <cstring>
#include <span>

#include "nsCOMPtr.h"
#include "nsXPCOMTypes.h"

enum class nsScriptType : uint8_t {
  eBool,
  eInt8,
  eUint8,
  eInt16,
  eUint16,
  eInt32,
  eUint32,
  eInt64,
  eUint64,
  eFloat,
  eDouble,
  eResult,        ///< nsresult, a number in script
  eString,        ///< nsAString: every UTF-16 unit is kept
  eCString,       ///< nsACString: UTF-8
  eChars,         ///< char*, closed by a zero: UTF-8; with a length: bytes. Null is null
  eWideChars,     ///< char16_t*, closed by a zero. Null is null
  eID,            ///< an identifier: an interface of Components.interfaces, or its text
  eInterface,     ///< an object; mInterface says of what kind
  eAnyInterface,  ///< an object of the kind that another parameter names
  eValue,         ///< any value, handed over as it is
  eContext,       ///< the engine's context: no parameter in script
};

/// A parameter's value on its way between engine and operation: 8 bytes of its own type. Strings,
/// identifiers and arrays are pointers.
struct nsScriptSlot {
  alignas(8) std::byte mBytes[8]{};
  template <class T>
  T Get() const {
    static_assert(sizeof(T) <= 8 && std::is_trivially_copyable_v<T>);
    T value;
    std::memcpy(&value, mBytes, sizeof value);
    return value;
  }
  template <class T>
  void Set(T aValue) {
    static_assert(sizeof(T) <= 8 && std::is_trivially_copyable_v<T>);
    std::memcpy(mBytes, &aValue, sizeof aValue);
  }
};

struct nsScriptParam {
  std::string_view mName;  ///< as script sees it: "aTimeout" is "timeout"
  nsScriptType mType;
  bool mOut;
  bool mArray = false;
  bool mOptional = false;
  bool mIsLength = false;            ///< the length of an out array: no result of its own
  bool mCounted = false;             ///< has a length beside it, mRelated
  int8_t mRelated = -1;              ///< the parameter that is the length, or the identifier
  const nsIID* mIID = nullptr;       ///< eInterface
  std::string_view mInterface = {};  ///< eInterface
};

struct nsScriptMember {
  using Call = nsresult (*)(nsISupports* aSelf, nsScriptSlot* aSlots);
  std::string_view mName;
  bool mIsAttribute;
  std::span<const nsScriptParam> mParams;  ///< of an attribute one, its value, as an out parameter
  Call mCall;                              ///< the method, or the getter
  Call mSet;                               ///< null: a method, or read-only
};

struct nsScriptConstant {
  std::string_view mName;
  int64_t mValue;
};

class nsScriptObject;

struct nsScriptInterface {
  std::string_view mName;
  const nsIID* mIID;
  const nsIID* mParent;
  std::span<const nsScriptConstant> mConstants;
  std::span<const nsScriptMember> mMembers;
  bool mFunction;  ///< a function of script will do where an object is wanted
  /// Makes the face that an object of script shows to compiled code; null: script can't implement
  /// this interface. The face has no count of its own; it is destroyed by aObject's class through
  /// mDestroy.
  nsISupports* (*mImplement)(nsScriptObject* aObject);
  void (*mDestroy)(nsISupports* aFace);
};

/// What the contract comments of the headers say, for the declarations that are printed.
struct nsScriptComment {
  std::string_view mInterface;
  std::string_view mOperation;  ///< as in C++; empty: the interface itself
  std::string_view mText;
};

/// An object of script as compiled code holds it. The engine's bridge implements it.
class nsScriptObject : public nsISupports {
 public:
  /// Calls the member of the script's object. aMember is one of aInterface; in slots are filled in,
  /// out slots are filled in on success: with values that the operation's caller takes over. On
  /// other threads than the main one NS_ERROR_NOT_SAME_THREAD.
  virtual nsresult CallScript(const nsScriptInterface& aInterface, const nsScriptMember& aMember,
                              bool aSet, nsScriptSlot* aSlots) = 0;

 protected:
  ~nsScriptObject() = default;
};

// ---- How a C++ type crosses

namespace vorel::script {

template <class T>
concept Interface = requires {
  T::kIID;
};

template <class T>
consteval nsScriptType NumberType() {
  if constexpr (std::same_as<T, bool>)
    return nsScriptType::eBool;
  else if constexpr (std::same_as<T, nsresult>)
    return nsScriptType::eResult;
  else if constexpr (std::same_as<T, float>)
    return nsScriptType::eFloat;
  else if constexpr (std::same_as<T, double>)
    return nsScriptType::eDouble;
  else {
    static_assert(std::integral<T> && !std::same_as<T, char> && !std::same_as<T, char16_t>,
                  "no way into script for this type");
    constexpr bool kSigned = std::signed_integral<T>;
    switch (sizeof(T)) {
      case 1:
        return kSigned ? nsScriptType::eInt8 : nsScriptType::eUint8;
      case 2:
        return kSigned ? nsScriptType::eInt16 : nsScriptType::eUint16;
      case 4:
        return kSigned ? nsScriptType::eInt32 : nsScriptType::eUint32;
      default:
        return kSigned ? nsScriptType::eInt64 : nsScriptType::eUint64;
    }
  }
}

/// kParam: type and direction. Pass: the slot as the operation's argument. Fill: the argument as a
/// slot, when script implements the operation; Take: what script answered, into the argument.
template <class P>
struct Traits {
  static constexpr nsScriptParam kParam{{}, NumberType<P>(), false};
  static P Pass(nsScriptSlot& aSlot) { return aSlot.Get<P>(); }
  static void Fill(nsScriptSlot& aSlot, P aArgument) { aSlot.Set(aArgument); }
  static void Take(const nsScriptSlot&, P) {}
};

template <nsScriptType Type, class P>
struct InPointer {
  static constexpr nsScriptParam kParam{{}, Type, false};
  static P Pass(nsScriptSlot& aSlot) { return aSlot.Get<P>(); }
  static void Fill(nsScriptSlot& aSlot, P aArgument) { aSlot.Set(aArgument); }
  static void Take(const nsScriptSlot&, P) {}
};

template <nsScriptType Type, class T, bool Out>
struct Reference {
  static constexpr nsScriptParam kParam{{}, Type, Out};
  static T& Pass(nsScriptSlot& aSlot) { return *aSlot.Get<T*>(); }
  static void Fill(nsScriptSlot& aSlot, T& aArgument) { aSlot.Set(&aArgument); }
  static void Take(const nsScriptSlot&, T&) {}  // it has been written in its place
};

template <nsScriptType Type, class T>
struct OutValue {
  static constexpr nsScriptParam kParam{{}, Type, true};
  static T* Pass(nsScriptSlot& aSlot) { return reinterpret_cast<T*>(aSlot.mBytes); }
  static void Fill(nsScriptSlot&, T*) {}
  static void Take(const nsScriptSlot& aSlot, T* aArgument) {
    if (aArgument) *aArgument = aSlot.Get<T>();
  }
};

template <nsScriptType Type, class T>
struct OutArray : OutValue<Type, T*> {
  static constexpr nsScriptParam kParam{{}, Type, true, true};
};

template <>
struct Traits<const nsAString&> : Reference<nsScriptType::eString, const nsAString, false> {};
template <>
struct Traits<nsAString&> : Reference<nsScriptType::eString, nsAString, true> {};
template <>
struct Traits<const nsACString&> : Reference<nsScriptType::eCString, const nsACString, false> {};
template <>
struct Traits<nsACString&> : Reference<nsScriptType::eCString, nsACString, true> {};
template <>
struct Traits<const nsID&> : Reference<nsScriptType::eID, const nsID, false> {};
template <>
struct Traits<const nsID*> : InPointer<nsScriptType::eID, const nsID*> {};
template <>
struct Traits<nsID**> : OutValue<nsScriptType::eID, nsID*> {};
template <>
struct Traits<nsID***> : OutArray<nsScriptType::eID, nsID*> {};
template <>
struct Traits<const char*> : InPointer<nsScriptType::eChars, const char*> {};
template <>
struct Traits<char**> : OutValue<nsScriptType::eChars, char*> {};
template <>
struct Traits<char***> : OutArray<nsScriptType::eChars, char*> {};
template <>
struct Traits<const char16_t*> : InPointer<nsScriptType::eWideChars, const char16_t*> {};
template <>
struct Traits<char16_t**> : OutValue<nsScriptType::eWideChars, char16_t*> {};
template <>
struct Traits<char16_t***> : OutArray<nsScriptType::eWideChars, char16_t*> {};
template <>
struct Traits<void**> : OutValue<nsScriptType::eAnyInterface, void*> {};
template <>
struct Traits<jsval> : InPointer<nsScriptType::eValue, jsval> {};
template <>
struct Traits<jsval*> : OutValue<nsScriptType::eValue, jsval> {};
template <>
struct Traits<JSContext*> : InPointer<nsScriptType::eContext, JSContext*> {};

template <Interface I>
struct Traits<I*> {
  static constexpr nsScriptParam kParam{
      {}, nsScriptType::eInterface, false, false, false, false, false, -1, &I::kIID, I::kName};
  static I* Pass(nsScriptSlot& aSlot) { return static_cast<I*>(aSlot.Get<nsISupports*>()); }
  static void Fill(nsScriptSlot& aSlot, I* aArgument) { aSlot.Set<nsISupports*>(aArgument); }
  static void Take(const nsScriptSlot&, I*) {}
};
template <Interface I>
struct Traits<I**> : OutValue<nsScriptType::eInterface, I*> {
  static constexpr nsScriptParam kParam{
      {}, nsScriptType::eInterface, true, false, false, false, false, -1, &I::kIID, I::kName};
};
template <Interface I>
struct Traits<I***> : OutArray<nsScriptType::eInterface, I*> {
  static constexpr nsScriptParam kParam{
      {}, nsScriptType::eInterface, true, true, false, false, false, -1, &I::kIID, I::kName};
};
template <class T>
requires(std::is_arithmetic_v<T> || std::same_as<T, nsresult>) struct Traits<T*>
    : OutValue<NumberType<T>(), T> {
};
template <class T>
requires std::is_arithmetic_v<T>
struct Traits<T**> : OutArray<NumberType<T>(), T> {
};

/// An array of numbers that goes in: a pointer that has a length beside it.
template <class T>
struct InArray {
  static constexpr nsScriptParam kParam{{}, NumberType<std::remove_const_t<T>>(), false, true};
  static T* Pass(nsScriptSlot& aSlot) { return aSlot.Get<T*>(); }
};
template <class P, bool HasLength>
struct TraitsWith : Traits<P> {};
template <class T>
requires std::is_arithmetic_v<T>
struct TraitsWith<T*, true> : InArray<T> {
};
template <>
struct TraitsWith<const char*, true> : Traits<const char*> {};

/// A string literal as a template argument.
template <size_t N>
struct Name {
  char mText[N]{};
  consteval Name(const char (&aText)[N]) {
    for (size_t i = 0; i < N; ++i) mText[i] = aText[i];
  }
  constexpr std::string_view View() const { return {mText, N - 1}; }

  // "aList[aCount]", "aTimeout?"
  consteval size_t NameLength() const {
    const size_t end = View().find_first_of("[?");
    return end == std::string_view::npos ? N - 1 : end;
  }
  consteval bool HasLength() const { return View().find('[') != std::string_view::npos; }
  consteval bool IsOptional() const { return View().ends_with('?'); }
  constexpr std::string_view Whole() const { return View().substr(0, View().find_first_of("[?")); }
  constexpr std::string_view Length() const {
    const size_t open = View().find('[');
    return View().substr(open + 1, View().find(']') - open - 1);
  }
};

/// "aTimeout" without its prefix: "timeout"; "aURI" is "uri", as "aIID" is "iid".
template <Name N>
struct ScriptName {
  static constexpr bool kPrefix =
      N.NameLength() > 1 && N.mText[0] == 'a' && N.mText[1] >= 'A' && N.mText[1] <= 'Z';
  static constexpr size_t kLength = N.NameLength() - kPrefix;
  static constexpr auto kText = [] {
    std::array<char, kLength + 1> text{};
    for (size_t i = 0; i < kLength; ++i) text[i] = N.mText[i + kPrefix];
    if (kPrefix) {
      const auto upper = [&](size_t i) {
        return i >= kLength || (text[i] >= 'A' && text[i] <= 'Z');
      };
      for (size_t i = 0; i < kLength && upper(i) && (i == 0 || upper(i + 1)); ++i) text[i] |= 0x20;
    }
    return text;
  }();
  static constexpr std::string_view kView{kText.data(), kLength};
};

template <auto Method>
struct Operation;

template <class I, class... P, nsresult (I::*Method)(P...)>
struct Operation<Method> {
  using Owner = I;
  static constexpr size_t kArity = sizeof...(P);
  static constexpr size_t kMaxArity = 12;
  static_assert(kArity <= kMaxArity);

  template <Name... N>
  static constexpr std::array<nsScriptParam, kArity> Params() {
    static_assert(sizeof...(N) == kArity, "name every parameter");
    std::array<nsScriptParam, kArity> params{TraitsWith<P, N.HasLength()>::kParam...};
    const std::array<std::string_view, kArity> whole{N.Whole()...};
    const std::array<std::string_view, kArity> names{ScriptName<N>::kView...};
    const std::array<bool, kArity> counted{N.HasLength()...};
    const std::array<std::string_view, kArity> lengths{
        (N.HasLength() ? N.Length() : std::string_view())...};
    const std::array<bool, kArity> optional{N.IsOptional()...};
    for (size_t i = 0; i < kArity; ++i) {
      params[i].mName = names[i];
      params[i].mOptional = optional[i];
      if (params[i].mArray && !counted[i])
        throw "an array needs the name of its length: \"aList[aCount]\"";
      if (counted[i]) {
        params[i].mCounted = true;
        for (size_t j = 0; j < kArity; ++j)
          if (whole[j] == lengths[i]) params[i].mRelated = static_cast<int8_t>(j);
        if (params[i].mRelated < 0) throw "no parameter has the name of the length";
        auto& length = params[static_cast<size_t>(params[i].mRelated)];
        if (length.mType != nsScriptType::eUint32 &&
            (length.mType != nsScriptType::eInt32 || params[i].mOut))
          throw "a length is a uint32_t, or, of an in parameter, an int32_t";
        if (params[i].mOut && length.mOut) length.mIsLength = true;
      }
      if (params[i].mType == nsScriptType::eAnyInterface) {
        for (size_t j = 0; j < i; ++j)
          if (params[j].mType == nsScriptType::eID) params[i].mRelated = static_cast<int8_t>(j);
        if (params[i].mRelated < 0) throw "a void** needs an identifier before it";
      }
    }
    return params;
  }

  /// The other way: the operation is implemented by script.
  static nsresult CallScript(nsScriptObject& aObject, const nsScriptInterface& aInterface,
                             const nsScriptMember& aMember, bool aSet, P... aArguments) {
    std::array<nsScriptSlot, kMaxArity> slots;
    size_t i = 0;
    (Traits<P>::Fill(slots[i++], aArguments), ...);
    const nsresult rv = aObject.CallScript(aInterface, aMember, aSet, slots.data());
    if (NS_FAILED(rv)) return rv;
    i = 0;
    (Traits<P>::Take(slots[i++], aArguments), ...);
    return rv;
  }

  template <Name... N>
  struct Caller {
    static nsresult Call(nsISupports* aSelf, nsScriptSlot* aSlots) {
      using Each = std::tuple<TraitsWith<P, N.HasLength()>...>;
      return [&]<size_t... K>(std::index_sequence<K...>) {
        return (static_cast<I*>(aSelf)->*Method)(std::tuple_element_t<K, Each>::Pass(aSlots[K])...);
      }
      (std::index_sequence_for<P...>());
    }
  };
};

}  // namespace vorel::script

// ---- The lines of a table

template <vorel::script::Name Name, auto Get, auto Set = nullptr>
struct nsAttribute {
  using Getter = vorel::script::Operation<Get>;
  static_assert(Getter::kArity == 1, "a getter has one out parameter");
  static constexpr auto kParams = Getter::template Params<"aValue">();
  static_assert(kParams[0].mOut, "a getter has one out parameter");
  static constexpr nsScriptMember::Call Setter() {
    if constexpr (std::is_null_pointer_v<decltype(Set)>) {
      return nullptr;
    } else {
      using S = vorel::script::Operation<Set>;
      static_assert(S::kArity == 1, "a setter has one in parameter");
      static_assert(!S::template Params<"aValue">()[0].mOut &&
                        S::template Params<"aValue">()[0].mType == kParams[0].mType,
                    "a setter takes what the getter gives");
      return &S::template Caller<"aValue">::Call;
    }
  }
  static constexpr bool kIsMember = true;
  static constexpr nsScriptMember kMember{Name.View(), true, kParams,
                                          &Getter::template Caller<"aValue">::Call, Setter()};
};

template <vorel::script::Name Name, auto Method, vorel::script::Name... Params>
struct nsMethod {
  using Op = vorel::script::Operation<Method>;
  static constexpr auto kParams = Op::template Params<Params...>();
  static constexpr bool kIsMember = true;
  static constexpr nsScriptMember kMember{Name.View(), false, kParams,
                                          &Op::template Caller<Params...>::Call, nullptr};
};

template <vorel::script::Name Name, auto Value>
struct nsConstant {
  static constexpr bool kIsMember = false;
  static constexpr nsScriptConstant kConstant{Name.View(), static_cast<int64_t>(Value)};
};

/// An operation that script is not to see; a comment says why.
template <auto Method>
struct nsLeftOut {
  static constexpr bool kIsMember = false;
};

/// A function of script will do where an object of this interface is wanted.
struct nsTakesFunction {
  static constexpr bool kIsMember = false;
};

/// Script can implement the interface; Face is a class that derives from nsScriptFace<I>.
template <class Face>
struct nsImplementedBy {
  static constexpr bool kIsMember = false;
  static nsISupports* Make(nsScriptObject* aObject) {
    return static_cast<nsISupports*>(new Face(aObject));
  }
  static void Destroy(nsISupports* aFace) { delete static_cast<Face*>(aFace); }
};

namespace vorel::script {

template <class T>
constexpr size_t kIsConstant = requires {
  T::kConstant;
}
? 1 : 0;
template <class T>
concept IsFace = requires {
  &T::Destroy;
};

template <nsInterface I, class... Line>
struct Binding {
  static constexpr auto kMembers = [] {
    std::array<nsScriptMember, (size_t{Line::kIsMember} + ... + 0)> members{};
    size_t next = 0;
    [[maybe_unused]] const auto add = [&]<class L>() {
      if constexpr (L::kIsMember) members[next++] = L::kMember;
    };
    (add.template operator()<Line>(), ...);
    return members;
  }();
  static constexpr auto kConstants = [] {
    std::array<nsScriptConstant, (kIsConstant<Line> + ... + 0)> constants{};
    size_t next = 0;
    [[maybe_unused]] const auto add = [&]<class L>() {
      if constexpr (kIsConstant<L>) constants[next++] = L::kConstant;
    };
    (add.template operator()<Line>(), ...);
    return constants;
  }();
  static constexpr nsScriptInterface kTable = [] {
    nsScriptInterface table{I::kName,   &I::kIID, nullptr,
                            kConstants, kMembers, (std::same_as<Line, nsTakesFunction> || ...),
                            nullptr,    nullptr};
    if constexpr (!std::is_void_v<typename I::Base>) table.mParent = &I::Base::kIID;
    [[maybe_unused]] const auto face = [&]<class L>() {
      if constexpr (IsFace<L>) {
        table.mImplement = &L::Make;
        table.mDestroy = &L::Destroy;
      }
    };
    (face.template operator()<Line>(), ...);
    return table;
  }();
};

}  // namespace vorel::script

/// The table of an interface. Names and signatures are checked by the compiler.
template <nsInterface I, class... Line>
constexpr const nsScriptInterface* nsBind() {
  return &vorel::script::Binding<I, Line...>::kTable;
}

// ---- Interfaces implemented by script

/// The gathered table of an interface; null when there is none.
[[gnu::visibility("default")]] const nsScriptInterface* NS_FindScriptInterface(const nsIID& aIID);

/// Base of the face of one interface. A class derives from it and overrides each operation with one
/// line:
///
///   nsresult OnAdded(nsIFoo* aFoo) override { return this->template Call<"onAdded",
///   &nsIBar::OnAdded>(aFoo); }
template <nsInterface I>
class nsScriptFace : public I {
 public:
  explicit nsScriptFace(nsScriptObject* aObject) : mObject(aObject) {}
  virtual ~nsScriptFace() = default;

  // One object of script has one count and one identity, whatever its faces.
  nsresult QueryInterface(const nsIID& aIID, void** aResult) override {
    return mObject->QueryInterface(aIID, aResult);
  }
  nsrefcnt AddRef() override { return mObject->AddRef(); }
  nsrefcnt Release() override { return mObject->Release(); }

 protected:
  template <vorel::script::Name Name, auto Method, class... A>
  nsresult Call(A&&... aArguments) {
    return Invoke<Name, Method, false>(std::forward<A>(aArguments)...);
  }
  template <vorel::script::Name Name, auto Method, class... A>
  nsresult Set(A&&... aArguments) {
    return Invoke<Name, Method, true>(std::forward<A>(aArguments)...);
  }

 private:
  template <vorel::script::Name Name, auto Method, bool IsSet, class... A>
  nsresult Invoke(A&&... aArguments) {
    using Op = vorel::script::Operation<Method>;
    static const nsScriptInterface* const sTable = NS_FindScriptInterface(Op::Owner::kIID);
    static const nsScriptMember* const sMember = Find(sTable, Name.View());
    if (!sMember) return NS_ERROR_NOT_IMPLEMENTED;
    return Op::CallScript(*mObject, *sTable, *sMember, IsSet, std::forward<A>(aArguments)...);
  }
  static const nsScriptMember* Find(const nsScriptInterface* aTable, std::string_view aName) {
    if (aTable)
      for (const nsScriptMember& member : aTable->mMembers)
        if (member.mName == aName) return &member;
    return nullptr;
  }

  nsScriptObject* const mObject;
};
