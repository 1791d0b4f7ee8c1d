// The one place that knows how this host's documents answer: another host replaces this file.
#pragma once

#include "nsCOMPtr.h"
#include "nsDebug.h"
#include "nsIDOMDocument.h"
#include "nsIDOMWindow.h"
#include "nsIHostDocument.h"
#include "nsILoadGroup.h"
#include "nsIURI.h"

/// The document interface. Main thread only, as what it is asked.
using nsDocument = nsIHostDocument;

/// The document that a script constructor's owner stands for: a window with a document, or, as this
/// host has no windows, the document itself.
inline nsresult NS_GetDocument(nsISupports* aOwner, nsCOMPtr<nsDocument>* aDocument) {
  nsresult rv;
  const auto window = do_QueryInterface<nsIDOMWindow>(aOwner, &rv);
  if (NS_FAILED(rv)) {
    *aDocument = do_QueryInterface<nsDocument>(aOwner, &rv);
    NS_ENSURE_SUCCESS(rv, rv);
    return NS_OK;
  }
  nsCOMPtr<nsIDOMDocument> document;
  rv = window->GetDocument(document.getter_AddRefs());
  NS_ENSURE_SUCCESS(rv, rv);
  *aDocument = do_QueryInterface<nsDocument>(document, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_OK;
}

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
