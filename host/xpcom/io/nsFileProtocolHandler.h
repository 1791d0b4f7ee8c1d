// The scheme "file", "@mozilla.org/network/protocol;1?name=file".
#pragma once

#include <string>

#include "nsIFileProtocolHandler.h"
#include "nsImplements.h"

enum class nsURLEnding { eByKind, eDirectory, eFile };

/// The URL of a file; a directory's has "/" at the end. The kind is looked up on the disk where it
/// is not told.
nsresult NS_URLSpecOfFile(nsIFile* aFile, nsURLEnding aEnding, std::string* aSpec);
/// The file of a URL's escaped path. NS_ERROR_MALFORMED_URI for a path that no file can have.
nsresult NS_FileOfURLPath(const std::string& aPath, nsIFile** aResult);

/// Main thread.
class nsFileProtocolHandler final
    : public nsImplements<nsFileProtocolHandler, nsIFileProtocolHandler> {
 public:
  static const nsClassInfoRecord kClassInfo;
  nsresult GetScheme(nsACString& aScheme) override;
  nsresult GetDefaultPort(int32_t* aDefaultPort) override;
  nsresult GetProtocolFlags(uint32_t* aProtocolFlags) override;
  nsresult NewURI(const nsACString& aSpec, const char* aOriginCharset, nsIURI* aBaseURI,
                  nsIURI** aResult) override;
  nsresult NewChannel(nsIURI*, nsIChannel**) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult AllowPort(int32_t aPort, const char* aScheme, bool* aResult) override;
  nsresult NewFileURI(nsIFile* aFile, nsIURI** aResult) override;
  /// With "/" at the end for a directory.
  nsresult GetURLSpecFromFile(nsIFile* aFile, nsACString& aResult) override;
  nsresult GetURLSpecFromActualFile(nsIFile* aFile, nsACString& aResult) override;
  nsresult GetURLSpecFromDir(nsIFile* aFile, nsACString& aResult) override;
  /// NS_ERROR_MALFORMED_URI for a text that is no URL of a file.
  nsresult GetFileFromURLSpec(const nsACString& aURL, nsIFile** aResult) override;
  nsresult ReadURLFile(nsIFile* aFile, nsIURI** aResult) override;

 private:
  ~nsFileProtocolHandler() override = default;
};
