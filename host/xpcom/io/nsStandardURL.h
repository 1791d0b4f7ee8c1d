// URLs, "@mozilla.org/network/standard-url;1".
#pragma once

#include "nsIFileURL.h"
#include "nsImplements.h"
#include "nsURLParts.h"

/// A hierarchical URL. Answers nsIFileURL only with the scheme "file". What it gives is escaped, as
/// it stands in the spec; what is set may be unescaped. A part that can't be taken is
/// NS_ERROR_MALFORMED_URI and changes nothing. Counts are atomic, but one thread at a time may use
/// it.
class nsStandardURL final : public nsImplements<nsStandardURL, nsIFileURL> {
 public:
  static const nsClassInfoRecord kClassInfo;
  nsStandardURL() = default;
  explicit nsStandardURL(nsURLParts aParts) : mParts(std::move(aParts)) {}
  /// From a spec, or, with a base, from what it means there. NS_ERROR_MALFORMED_URI.
  static nsresult Make(const nsACString& aSpec, nsIURI* aBase, nsIURI** aResult);

  nsresult QueryInterface(const nsIID& aIID, void** aResult) override;

  // nsIURI
  nsresult GetSpec(nsACString& aSpec) override;
  nsresult SetSpec(const nsACString& aSpec) override;
  nsresult GetPrePath(nsACString& aPrePath) override;
  nsresult GetScheme(nsACString& aScheme) override;
  nsresult SetScheme(const nsACString& aScheme) override;
  nsresult GetUserPass(nsACString& aUserPass) override;
  nsresult SetUserPass(const nsACString& aUserPass) override;
  nsresult GetUsername(nsACString& aUsername) override;
  nsresult SetUsername(const nsACString& aUsername) override;
  nsresult GetPassword(nsACString& aPassword) override;
  nsresult SetPassword(const nsACString& aPassword) override;
  nsresult GetHostPort(nsACString& aHostPort) override;
  nsresult SetHostPort(const nsACString& aHostPort) override;
  nsresult GetHost(nsACString& aHost) override;
  nsresult SetHost(const nsACString& aHost) override;
  /// -1: the scheme's own.
  nsresult GetPort(int32_t* aPort) override;
  nsresult SetPort(int32_t aPort) override;
  /// With query and reference.
  nsresult GetPath(nsACString& aPath) override;
  nsresult SetPath(const nsACString& aPath) override;
  nsresult Equals(nsIURI* aOther, bool* aResult) override;
  nsresult SchemeIs(const char* aScheme, bool* aResult) override;
  nsresult Clone(nsIURI** aResult) override;
  nsresult Resolve(const nsACString& aRelativePath, nsACString& aResult) override;
  nsresult GetAsciiSpec(nsACString& aAsciiSpec) override { return GetSpec(aAsciiSpec); }
  nsresult GetAsciiHost(nsACString& aAsciiHost) override { return GetHost(aAsciiHost); }
  nsresult GetOriginCharset(nsACString& aOriginCharset) override;
  nsresult GetRef(nsACString& aRef) override;
  nsresult SetRef(const nsACString& aRef) override;
  nsresult EqualsExceptRef(nsIURI* aOther, bool* aResult) override;
  nsresult CloneIgnoringRef(nsIURI** aResult) override;
  nsresult GetSpecIgnoringRef(nsACString& aSpecIgnoringRef) override;
  nsresult GetHasRef(bool* aHasRef) override;

  // nsIURL
  nsresult GetFilePath(nsACString& aFilePath) override;
  nsresult SetFilePath(const nsACString& aFilePath) override;
  nsresult GetQuery(nsACString& aQuery) override;
  nsresult SetQuery(const nsACString& aQuery) override;
  nsresult GetDirectory(nsACString& aDirectory) override;
  nsresult SetDirectory(const nsACString& aDirectory) override;
  nsresult GetFileName(nsACString& aFileName) override;
  nsresult SetFileName(const nsACString& aFileName) override;
  nsresult GetFileBaseName(nsACString& aFileBaseName) override;
  nsresult SetFileBaseName(const nsACString& aFileBaseName) override;
  nsresult GetFileExtension(nsACString& aFileExtension) override;
  nsresult SetFileExtension(const nsACString& aFileExtension) override;
  nsresult GetCommonBaseSpec(nsIURI* aURIToCompare, nsACString& aResult) override;
  nsresult GetRelativeSpec(nsIURI* aURIToCompare, nsACString& aResult) override;

  // nsIFileURL
  nsresult GetFile(nsIFile** aFile) override;
  nsresult SetFile(nsIFile* aFile) override;

 private:
  ~nsStandardURL() override = default;
  std::string Directory() const { return mParts.mPath.substr(0, mParts.NameOffset()); }
  std::string Name() const { return mParts.mPath.substr(mParts.NameOffset()); }
  /// Where the ending starts in the name, after the dot; the name's length plus one if it has none.
  static size_t EndingOffset(const std::string& aName);
  /// Replaces the path, but not query and reference.
  nsresult ReplacePath(const std::string& aPath);
  nsresult ReplaceAuthority(const std::string& aUserPass, const std::string& aHostPort);

  nsURLParts mParts;
};
