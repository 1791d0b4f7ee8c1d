// The IO service, "@mozilla.org/network/io-service;1".
#pragma once

#include "nsIIOService2.h"
#include "nsIObserver.h"
#include "nsImplements.h"

/// URLs and the offline state. Main thread. Channels are not implemented.
class nsIOService final : public nsImplements<nsIOService, nsIIOService2, nsIObserver> {
 public:
  static const nsClassInfoRecord kClassInfo;

  /// The service of the contract "@mozilla.org/network/protocol;1?name=" and the scheme.
  /// NS_ERROR_UNKNOWN_PROTOCOL.
  nsresult GetProtocolHandler(const char* aScheme, nsIProtocolHandler** aResult) override;
  nsresult GetProtocolFlags(const char* aScheme, uint32_t* aResult) override;
  /// A text without a scheme needs a base: NS_ERROR_MALFORMED_URI. A scheme that has no handler
  /// gives a URL all the same, if the text is a hierarchical one; else NS_ERROR_UNKNOWN_PROTOCOL.
  /// The charset is taken for UTF-8.
  nsresult NewURI(const nsACString& aSpec, const char* aOriginCharset, nsIURI* aBaseURI,
                  nsIURI** aResult) override;
  nsresult NewFileURI(nsIFile* aFile, nsIURI** aResult) override;
  nsresult NewChannelFromURI(nsIURI*, nsIChannel**) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult NewChannel(const nsACString&, const char*, nsIURI*, nsIChannel**) override {
    return NS_ERROR_NOT_IMPLEMENTED;
  }
  /// A change is announced: "network:offline-about-to-go-offline" (before) and
  /// "network:offline-status-changed".
  nsresult GetOffline(bool* aOffline) override;
  nsresult SetOffline(bool aOffline) override;
  nsresult AllowPort(int32_t aPort, const char* aScheme, bool* aResult) override;
  nsresult ExtractScheme(const nsACString& aURLString, nsACString& aResult) override;

  /// While true, "network:link-status-changed" sets the offline state. False at first.
  nsresult GetManageOfflineStatus(bool* aManageOfflineStatus) override;
  nsresult SetManageOfflineStatus(bool aManageOfflineStatus) override;
  nsresult NewChannelFromURIWithProxyFlags(nsIURI*, nsIURI*, uint32_t, nsIChannel**) override {
    return NS_ERROR_NOT_IMPLEMENTED;
  }

  nsresult Observe(nsISupports* aSubject, const char* aTopic, const char16_t* aData) override;

 private:
  ~nsIOService() override = default;
  bool mOffline = false;
  bool mManageOffline = false;
};
