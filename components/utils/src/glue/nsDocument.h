// The one place that knows how this host's documents answer: another host replaces this file.
#pragma once

#include "nsCOMPtr.h"
#include "nsIHostDocument.h"
#include "nsILoadGroup.h"
#include "nsIURI.h"

/// The document interface. Main thread only, as what it is asked.
using nsDocument = nsIHostDocument;

/// Null when the document has none.
inline nsCOMPtr<nsILoadGroup> NS_GetLoadGroup(nsDocument* aDocument) {
  nsCOMPtr<nsILoadGroup> group;
  (void)aDocument->GetLoadGroup(group.getter_AddRefs());
  return group;
}

/// Null when the document has none.
inline nsCOMPtr<nsIURI> NS_GetBaseURI(nsDocument* aDocument) {
  nsCOMPtr<nsIURI> uri;
  (void)aDocument->GetBaseURI(uri.getter_AddRefs());
  return uri;
}
