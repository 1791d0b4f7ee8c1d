#include "nsStandardURL.h"

#include <algorithm>

#include "nsFileProtocolHandler.h"
#include "nsString.h"

namespace {

nsresult PartsOf(nsIURI* aURI, nsURLParts* aParts) {
  nsCString spec;
  const nsresult rv = aURI->GetSpec(spec);
  return NS_FAILED(rv) ? rv : aParts->Parse(spec.view());
}

/// The length of the directories that two paths share, up to and with the last common "/".
size_t CommonDirectory(std::string_view aA, std::string_view aB) {
  const size_t length = static_cast<size_t>(
      std::mismatch(aA.begin(), aA.end(), aB.begin(), aB.end()).first - aA.begin());
  return aA.substr(0, length).rfind('/') + 1;
}

}  // namespace

const nsClassInfoRecord nsStandardURL::kClassInfo = {NS_ClassInterfaces<nsIURI, nsIURL>, nullptr, 0,
                                                     "de9472d0-8034-11d3-9399-00104ba0fd40"_iid};

nsresult nsStandardURL::Make(const nsACString& aSpec, nsIURI* aBase, nsIURI** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  nsCString resolved(aSpec);
  if (aBase) {
    const nsresult rv = aBase->Resolve(aSpec, resolved);
    if (NS_FAILED(rv)) return rv;
  }
  nsURLParts parts;
  const nsresult rv = parts.Parse(resolved.view());
  if (NS_SUCCEEDED(rv)) MakeRefCounted<nsStandardURL>(std::move(parts)).forget(aResult);
  return rv;
}

nsresult nsStandardURL::QueryInterface(const nsIID& aIID, void** aResult) {
  if (aResult && aIID == nsIFileURL::kIID && !mParts.IsFile()) {
    *aResult = nullptr;
    return NS_ERROR_NO_INTERFACE;
  }
  return nsImplementsWith::QueryInterface(aIID, aResult);
}

nsresult nsStandardURL::GetSpec(nsACString& aSpec) { return NS_Give(mParts.Spec(), aSpec); }
nsresult nsStandardURL::SetSpec(const nsACString& aSpec) { return mParts.Parse(NS_View(aSpec)); }
nsresult nsStandardURL::GetPrePath(nsACString& aPrePath) {
  return NS_Give(mParts.PrePath(), aPrePath);
}
nsresult nsStandardURL::GetScheme(nsACString& aScheme) { return NS_Give(mParts.mScheme, aScheme); }

nsresult nsStandardURL::SetScheme(const nsACString& aScheme) {
  std::string scheme;
  const nsresult rv = NS_ExtractScheme(std::string(NS_View(aScheme)) + ":", &scheme);
  if (NS_FAILED(rv)) return rv;
  nsURLParts parts = mParts;
  parts.mScheme = scheme;
  return mParts.Parse(parts.Spec());  // the new scheme may ask for a host, or have none
}

nsresult nsStandardURL::ReplaceAuthority(const std::string& aUserPass,
                                         const std::string& aHostPort) {
  return mParts.ParseAuthority(aUserPass.empty() ? aHostPort : aUserPass + "@" + aHostPort);
}

nsresult nsStandardURL::GetUserPass(nsACString& aUserPass) {
  return NS_Give(mParts.UserPass(), aUserPass);
}
nsresult nsStandardURL::SetUserPass(const nsACString& aUserPass) {
  return ReplaceAuthority(std::string(NS_View(aUserPass)), mParts.HostPort());
}
nsresult nsStandardURL::GetUsername(nsACString& aUsername) {
  return NS_Give(mParts.mUser, aUsername);
}
nsresult nsStandardURL::SetUsername(const nsACString& aUsername) {
  if (mParts.IsFile()) return NS_ERROR_MALFORMED_URI;
  mParts.mUser = NS_EscapeUserInfo(NS_View(aUsername));
  return NS_OK;
}
nsresult nsStandardURL::GetPassword(nsACString& aPassword) {
  return NS_Give(mParts.mPassword.value_or(""), aPassword);
}
nsresult nsStandardURL::SetPassword(const nsACString& aPassword) {
  if (mParts.IsFile()) return NS_ERROR_MALFORMED_URI;
  mParts.mPassword.reset();
  if (!NS_View(aPassword).empty()) mParts.mPassword = NS_EscapeUserInfo(NS_View(aPassword));
  return NS_OK;
}
nsresult nsStandardURL::GetHostPort(nsACString& aHostPort) {
  return NS_Give(mParts.HostPort(), aHostPort);
}
nsresult nsStandardURL::SetHostPort(const nsACString& aHostPort) {
  return ReplaceAuthority(mParts.UserPass(), std::string(NS_View(aHostPort)));
}

nsresult nsStandardURL::GetHost(nsACString& aHost) {
  std::string_view host = mParts.mHost;
  if (host.starts_with('[')) host = host.substr(1, host.size() - 2);
  return NS_Give(host, aHost);
}

nsresult nsStandardURL::SetHost(const nsACString& aHost) {
  std::string host(NS_View(aHost));
  if (host.find(':') != host.npos && !host.starts_with('[')) host = "[" + host + "]";
  return mParts.ParseHost(host);
}

nsresult nsStandardURL::GetPort(int32_t* aPort) {
  if (!aPort) return NS_ERROR_NULL_POINTER;
  *aPort = mParts.mPort;
  return NS_OK;
}

nsresult nsStandardURL::SetPort(int32_t aPort) {
  if (aPort < -1 || aPort > 65535 || mParts.IsFile()) return NS_ERROR_MALFORMED_URI;
  mParts.mPort = aPort == NS_DefaultPort(mParts.mScheme) ? -1 : aPort;
  return NS_OK;
}

nsresult nsStandardURL::GetPath(nsACString& aPath) {
  return NS_Give(mParts.PathQuery() + (mParts.mRef ? "#" + *mParts.mRef : ""), aPath);
}
nsresult nsStandardURL::SetPath(const nsACString& aPath) {
  return mParts.ParsePath(NS_View(aPath));
}

nsresult nsStandardURL::Equals(nsIURI* aOther, bool* aResult) {
  if (!aOther || !aResult) return NS_ERROR_NULL_POINTER;
  nsCString spec;
  const nsresult rv = aOther->GetSpec(spec);
  if (NS_SUCCEEDED(rv)) *aResult = spec.view() == mParts.Spec();
  return rv;
}

nsresult nsStandardURL::EqualsExceptRef(nsIURI* aOther, bool* aResult) {
  if (!aOther || !aResult) return NS_ERROR_NULL_POINTER;
  nsCString spec;
  const nsresult rv = aOther->GetSpecIgnoringRef(spec);
  if (NS_SUCCEEDED(rv)) *aResult = spec.view() == mParts.PrePath() + mParts.PathQuery();
  return rv;
}

nsresult nsStandardURL::SchemeIs(const char* aScheme, bool* aResult) {
  if (!aScheme || !aResult) return NS_ERROR_NULL_POINTER;
  std::string scheme;
  *aResult = NS_SUCCEEDED(NS_ExtractScheme(std::string(aScheme) + ":", &scheme)) &&
             scheme == mParts.mScheme;
  return NS_OK;
}

nsresult nsStandardURL::Clone(nsIURI** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  MakeRefCounted<nsStandardURL>(mParts).forget(aResult);
  return NS_OK;
}

nsresult nsStandardURL::CloneIgnoringRef(nsIURI** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  nsURLParts parts = mParts;
  parts.mRef.reset();
  MakeRefCounted<nsStandardURL>(std::move(parts)).forget(aResult);
  return NS_OK;
}

nsresult nsStandardURL::Resolve(const nsACString& aRelativePath, nsACString& aResult) {
  // A whole URL of another kind is its own meaning, also one that is not hierarchical.
  std::string scheme;
  if (NS_SUCCEEDED(NS_ExtractScheme(NS_View(aRelativePath), &scheme)) && scheme != mParts.mScheme)
    return NS_CStringCopy(aResult, aRelativePath);
  nsURLParts parts;
  const nsresult rv = mParts.Resolve(NS_View(aRelativePath), &parts);
  return NS_FAILED(rv) ? rv : NS_Give(parts.Spec(), aResult);
}

nsresult nsStandardURL::GetOriginCharset(nsACString& aOriginCharset) {
  return NS_Give("UTF-8", aOriginCharset);
}
nsresult nsStandardURL::GetRef(nsACString& aRef) { return NS_Give(mParts.mRef.value_or(""), aRef); }

nsresult nsStandardURL::SetRef(const nsACString& aRef) {
  std::string_view ref = NS_View(aRef);
  if (ref.starts_with('#')) ref.remove_prefix(1);
  return mParts.ParsePath(mParts.PathQuery() + (ref.empty() ? "" : "#" + std::string(ref)));
}

nsresult nsStandardURL::GetSpecIgnoringRef(nsACString& aSpecIgnoringRef) {
  return NS_Give(mParts.PrePath() + mParts.PathQuery(), aSpecIgnoringRef);
}

nsresult nsStandardURL::GetHasRef(bool* aHasRef) {
  if (!aHasRef) return NS_ERROR_NULL_POINTER;
  *aHasRef = mParts.mRef.has_value();
  return NS_OK;
}

nsresult nsStandardURL::ReplacePath(const std::string& aPath) {
  nsURLParts parts;
  const nsresult rv = parts.ParsePath(aPath);
  if (NS_FAILED(rv)) return rv;
  if (parts.mQuery || parts.mRef) return NS_ERROR_MALFORMED_URI;
  mParts.mPath = parts.mPath;
  return NS_OK;
}

nsresult nsStandardURL::GetFilePath(nsACString& aFilePath) {
  return NS_Give(mParts.mPath, aFilePath);
}
nsresult nsStandardURL::SetFilePath(const nsACString& aFilePath) {
  return ReplacePath(std::string(NS_View(aFilePath)));
}
nsresult nsStandardURL::GetQuery(nsACString& aQuery) {
  return NS_Give(mParts.mQuery.value_or(""), aQuery);
}

nsresult nsStandardURL::SetQuery(const nsACString& aQuery) {
  std::string_view query = NS_View(aQuery);
  if (query.starts_with('?')) query.remove_prefix(1);
  if (query.find('#') != query.npos) return NS_ERROR_MALFORMED_URI;
  const auto ref = mParts.mRef;
  const nsresult rv =
      mParts.ParsePath(mParts.mPath + (query.empty() ? "" : "?" + std::string(query)));
  mParts.mRef = ref;
  return rv;
}

nsresult nsStandardURL::GetDirectory(nsACString& aDirectory) {
  return NS_Give(Directory(), aDirectory);
}
nsresult nsStandardURL::SetDirectory(const nsACString& aDirectory) {
  std::string directory(NS_View(aDirectory));
  if (!directory.ends_with('/')) directory += '/';
  return ReplacePath(directory + Name());
}
nsresult nsStandardURL::GetFileName(nsACString& aFileName) { return NS_Give(Name(), aFileName); }
nsresult nsStandardURL::SetFileName(const nsACString& aFileName) {
  return ReplacePath(Directory() + std::string(NS_View(aFileName)));
}

size_t nsStandardURL::EndingOffset(const std::string& aName) {
  const size_t dot = aName.rfind('.');
  return (dot == aName.npos ? aName.size() : dot) + 1;
}

nsresult nsStandardURL::GetFileBaseName(nsACString& aFileBaseName) {
  const std::string name = Name();
  return NS_Give(name.substr(0, EndingOffset(name) - 1), aFileBaseName);
}

nsresult nsStandardURL::SetFileBaseName(const nsACString& aFileBaseName) {
  const std::string name = Name();
  return ReplacePath(Directory() + std::string(NS_View(aFileBaseName)) +
                     name.substr(EndingOffset(name) - 1));
}

nsresult nsStandardURL::GetFileExtension(nsACString& aFileExtension) {
  const std::string name = Name();
  return NS_Give(name.substr(std::min(EndingOffset(name), name.size())), aFileExtension);
}

nsresult nsStandardURL::SetFileExtension(const nsACString& aFileExtension) {
  const std::string name = Name();
  const std::string ending(NS_View(aFileExtension));
  return ReplacePath(Directory() + name.substr(0, EndingOffset(name) - 1) +
                     (ending.empty() ? "" : "." + ending));
}

nsresult nsStandardURL::GetCommonBaseSpec(nsIURI* aURIToCompare, nsACString& aResult) {
  if (!aURIToCompare) return NS_ERROR_NULL_POINTER;
  nsURLParts other;
  if (NS_FAILED(PartsOf(aURIToCompare, &other)) || other.PrePath() != mParts.PrePath())
    return NS_Give("", aResult);
  return NS_Give(
      mParts.PrePath() + mParts.mPath.substr(0, CommonDirectory(mParts.mPath, other.mPath)),
      aResult);
}

nsresult nsStandardURL::GetRelativeSpec(nsIURI* aURIToCompare, nsACString& aResult) {
  if (!aURIToCompare) return NS_ERROR_NULL_POINTER;
  nsURLParts other;
  if (NS_FAILED(PartsOf(aURIToCompare, &other)) || other.PrePath() != mParts.PrePath())
    return aURIToCompare->GetSpec(aResult);
  const size_t common = CommonDirectory(mParts.mPath, other.mPath);
  std::string relative;
  for (auto up = std::count(mParts.mPath.begin() + static_cast<ptrdiff_t>(common),
                            mParts.mPath.end(), '/');
       up > 0; --up)
    relative += "../";
  relative += other.PathQuery().substr(common) + (other.mRef ? "#" + *other.mRef : "");
  return NS_Give(relative, aResult);
}

nsresult nsStandardURL::GetFile(nsIFile** aFile) {
  if (!aFile) return NS_ERROR_NULL_POINTER;
  if (!mParts.IsFile()) return NS_ERROR_UNEXPECTED;
  return NS_FileOfURLPath(mParts.mPath, aFile);
}

nsresult nsStandardURL::SetFile(nsIFile* aFile) {
  if (!aFile) return NS_ERROR_NULL_POINTER;
  if (!mParts.IsFile()) return NS_ERROR_UNEXPECTED;
  std::string spec;
  nsresult rv = NS_URLSpecOfFile(aFile, nsURLEnding::eByKind, &spec);
  return NS_FAILED(rv) ? rv : mParts.Parse(spec);
}
