// What a component may ask of the document that a script runs in.
#pragma once

#include "nsXPCOMTypes.h"

class nsILoadGroup;
class nsIURI;

/// Answered by the `document` of a script's global object. Main thread only.
class nsIHostDocument : public nsISupports {
 public:
  using Self = nsIHostDocument;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsIHostDocument";
  static constexpr nsIID kIID = "5d0c1b77-8d0e-4b53-9c7e-3f6a1d2e94b8"_iid;

  /// The URI that relative ones are resolved against: the address of the document, for a script
  /// file that of the file. Null, and success, for a document without an address.
  virtual nsresult GetBaseURI(nsIURI** aBaseURI) = 0;

  /// The group of what runs on behalf of the document. When the document goes, it cancels its
  /// requests. Null, and success, for a document that has none.
  virtual nsresult GetLoadGroup(nsILoadGroup** aLoadGroup) = 0;

 protected:
  ~nsIHostDocument() = default;
};
