// The tables that have been gathered, by identifier and by name.
#pragma once

#include <span>
#include <vector>

#include "nsScriptTable.h"

/// Those of the platform's own interfaces, made of their definitions.
std::vector<const nsScriptInterface*> NS_PlatformScriptInterfaces();

/// All tables. Filled before scripts run, then read by any thread.
class nsScriptTables {
 public:
  static void Add(std::span<const nsScriptInterface* const> aInterfaces);
  static void AddComments(std::span<const nsScriptComment> aComments);
  /// TypeScript text about global names, which tables do not tell.
  static void AddDeclarations(std::string_view aText);
  static std::string_view Declarations();

  static const nsScriptInterface* Find(const nsIID& aIID);
  static const nsScriptInterface* Find(std::string_view aName);
  /// The parent's table; null for nsISupports.
  static const nsScriptInterface* Parent(const nsScriptInterface& aInterface);
  /// True when aInterface is aOther, or derives from it.
  static bool Derives(const nsScriptInterface* aInterface, const nsScriptInterface* aOther);
  /// In the order in which they were added, parents first.
  static const std::vector<const nsScriptInterface*>& All();
  /// Those that script can implement and that derive from aInterface, at any depth.
  static std::vector<const nsScriptInterface*> ImplementableBelow(
      const nsScriptInterface& aInterface);

  /// The contract comment of an operation: GetLabel for the attribute "label". Empty when there is
  /// none.
  static std::string_view Comment(std::string_view aInterface, std::string_view aOperation);
};
