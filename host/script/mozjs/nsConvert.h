// Values between script and operations' slots.
#pragma once

#include <new>
#include <string>
#include <variant>

#include "nsScriptRuntime.h"
#include "nsString.h"

/// What a message says where a value came from: "nsIFoo.bar: argument 2 (count)".
struct nsPlace {
  const nsScriptInterface* mInterface;
  const nsScriptMember* mMember;
  int mArgument;  ///< counted from 1; 0: an attribute's value; -1: what a function of script
                  ///< answered
  std::string Method() const;
  std::string Text(const nsScriptParam& aParam) const;
};

/// The slots of one call, and what they point to.
class nsCallFrame {
 public:
  explicit nsCallFrame(size_t aCount) : mCount(aCount) {
    for (size_t i = 0; i < aCount; ++i) new (&mHeld[i]) Held();
  }
  ~nsCallFrame() {
    for (size_t i = 0; i < mCount; ++i) At(i).~Held();
  }
  nsCallFrame(const nsCallFrame&) = delete;
  nsCallFrame& operator=(const nsCallFrame&) = delete;

  using Held = std::variant<std::monostate, nsString, nsCString, std::string, std::u16string, nsID,
                            nsCOMPtr<nsISupports>, std::vector<std::byte>>;
  Held& At(size_t aIndex) { return *std::launder(reinterpret_cast<Held*>(&mHeld[aIndex])); }
  template <class T, class... A>
  T& Hold(size_t aIndex, A&&... aArguments) {
    return At(aIndex).emplace<T>(std::forward<A>(aArguments)...);
  }
  nsScriptSlot mSlots[12];

 private:
  struct alignas(Held) Room {
    std::byte mBytes[sizeof(Held)];
  };
  const size_t mCount;
  Room mHeld[12];
};

/// Bytes of a number in a slot, and in an array.
size_t NS_NumberSize(nsScriptType aType);

/// Reads a value for an in parameter, and what it points to into the frame. False with a pending
/// TypeError.
bool NS_FromScript(nsScriptRuntime* aRuntime, JS::HandleValue aValue, const nsScriptParam& aParam,
                   const nsPlace& aPlace, nsCallFrame& aFrame, size_t aIndex);
/// Makes room for what an operation writes.
void NS_PrepareOut(const nsScriptParam& aParam, nsCallFrame& aFrame, size_t aIndex);
/// Makes a value of a slot. An array's length is aLength.
bool NS_ToScript(nsScriptRuntime* aRuntime, const nsScriptParam& aParam, const nsScriptSlot& aSlot,
                 const nsIID* aIID, uint32_t aLength, JS::MutableHandleValue aResult);
/// Frees what an out slot owns: strings, identifiers, arrays and references of its own.
void NS_FreeOut(const nsScriptParam& aParam, const nsScriptSlot& aSlot, uint32_t aLength);
/// Writes a value, read by NS_FromScript, to where an operation's caller takes it over. aSlot is
/// the caller's.
bool NS_GiveOut(const nsScriptParam& aParam, nsCallFrame& aFrame, size_t aIndex,
                nsScriptSlot& aSlot);

/// An object for compiled code, as aIID. Null, and true, for null. False with a pending TypeError.
bool NS_ToNative(nsScriptRuntime* aRuntime, JS::HandleValue aValue, const nsIID& aIID,
                 const std::string& aPlace, nsCOMPtr<nsISupports>* aResult);
