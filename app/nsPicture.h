// The picture of the machine, as the library gives it: adapters, and the bindings in force on them.
#pragma once

#include <iosfwd>
#include <nlohmann/json_fwd.hpp>
#include <span>

#include "nsCOMArray.h"

class nsISystemAdapter;
class nsISystemApplicationProfileBinding;
class nsISystemManager;
struct nsScriptInterface;

/// Reads what script could read: every attribute of every interface that an object's class
/// information lists. Attributes that answer with a failure are left out. Main thread.
class nsPicture {
 public:
  /// The tables say which attributes there are; they must live as long as the picture.
  explicit nsPicture(std::span<const nsScriptInterface* const> aInterfaces);

  /// {"adapters": [...], "bindings": [...]}; an adapter in a binding is the index in the first
  /// list.
  nsresult Read(nsISystemManager* aManager,
                const nsCOMArray<nsISystemApplicationProfileBinding>& aBindings,
                nlohmann::ordered_json* aOut) const;
  /// One adapter, or any other object that has class information.
  nlohmann::ordered_json Describe(nsISupports* aObject) const;
  /// A binding: its profile's name, the index of its adapter (null when that is in no list), and
  /// what its class offers beside.
  nlohmann::ordered_json DescribeBinding(nsISystemApplicationProfileBinding* aBinding,
                                         const std::vector<nsISystemAdapter*>& aAdapters) const;

  /// For people: a table, with colours if so asked.
  static void Print(std::ostream& aOut, const nlohmann::ordered_json& aPicture, bool aColours);
  /// One change, as nsFollower reports it, in one line; flushed.
  static void PrintChange(std::ostream& aOut, const nlohmann::ordered_json& aChange);

 private:
  const nsScriptInterface* Find(const nsID& aIID) const;
  nlohmann::ordered_json Value(nsISupports* aObject, int aDepth) const;
  void AddAttributes(nsISupports* aObject, const nsScriptInterface& aInterface, int aDepth,
                     nlohmann::ordered_json* aOut) const;

  std::span<const nsScriptInterface* const> mInterfaces;
};
