#include "nsFileProtocolHandler.h"

#include "nsIFile.h"
#include "nsIURI.h"
#include "nsLocalFile.h"
#include "nsStandardURL.h"
#include "nsString.h"

nsresult NS_URLSpecOfFile(nsIFile* aFile, nsURLEnding aEnding, std::string* aSpec) {
  if (!aFile) return NS_ERROR_NULL_POINTER;
  nsCString path;
  const nsresult rv = aFile->GetNativePath(path);
  if (NS_FAILED(rv)) return rv;
  bool isDirectory = aEnding == nsURLEnding::eDirectory;
  // A file that is not there has no kind, and a URL without "/".
  if (aEnding == nsURLEnding::eByKind && NS_FAILED(aFile->IsDirectory(&isDirectory)))
    isDirectory = false;
  std::string spec = "file://" + NS_EscapePath(path.view());
  if (isDirectory && !spec.ends_with('/')) spec += '/';
  *aSpec = std::move(spec);
  return NS_OK;
}

nsresult NS_FileOfURLPath(const std::string& aPath, nsIFile** aResult) {
  auto file = MakeRefCounted<nsLocalFile>();
  if (NS_FAILED(file->InitWithNativePath(nsCString(NS_Unescape(aPath)))))
    return NS_ERROR_MALFORMED_URI;
  file.forget(aResult);
  return NS_OK;
}

const nsClassInfoRecord nsFileProtocolHandler::kClassInfo = {
    NS_ClassInterfaces<nsIFileProtocolHandler>, nullptr, nsIClassInfo::SINGLETON,
    "fbc81170-1f69-11d3-9344-00104ba0fd40"_iid};

nsresult nsFileProtocolHandler::GetScheme(nsACString& aScheme) { return NS_Give("file", aScheme); }

nsresult nsFileProtocolHandler::GetDefaultPort(int32_t* aDefaultPort) {
  if (!aDefaultPort) return NS_ERROR_NULL_POINTER;
  *aDefaultPort = -1;
  return NS_OK;
}

nsresult nsFileProtocolHandler::GetProtocolFlags(uint32_t* aProtocolFlags) {
  if (!aProtocolFlags) return NS_ERROR_NULL_POINTER;
  *aProtocolFlags = URI_NOAUTH | URI_IS_LOCAL_FILE | URI_IS_LOCAL_RESOURCE;
  return NS_OK;
}

nsresult nsFileProtocolHandler::NewURI(const nsACString& aSpec, const char* /*aOriginCharset*/,
                                       nsIURI* aBaseURI, nsIURI** aResult) {
  return nsStandardURL::Make(aSpec, aBaseURI, aResult);
}

nsresult nsFileProtocolHandler::AllowPort(int32_t /*aPort*/, const char* /*aScheme*/,
                                          bool* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  *aResult = false;  // files have no ports
  return NS_OK;
}

nsresult nsFileProtocolHandler::NewFileURI(nsIFile* aFile, nsIURI** aResult) {
  std::string spec;
  const nsresult rv = NS_URLSpecOfFile(aFile, nsURLEnding::eByKind, &spec);
  return NS_FAILED(rv) ? rv : nsStandardURL::Make(nsCString(spec), nullptr, aResult);
}

namespace {

nsresult GiveSpec(nsIFile* aFile, nsURLEnding aEnding, nsACString& aResult) {
  std::string spec;
  const nsresult rv = NS_URLSpecOfFile(aFile, aEnding, &spec);
  if (NS_SUCCEEDED(rv)) NS_Assign(aResult, spec);
  return rv;
}

}  // namespace

nsresult nsFileProtocolHandler::GetURLSpecFromFile(nsIFile* aFile, nsACString& aResult) {
  return GiveSpec(aFile, nsURLEnding::eByKind, aResult);
}
nsresult nsFileProtocolHandler::GetURLSpecFromActualFile(nsIFile* aFile, nsACString& aResult) {
  return GiveSpec(aFile, nsURLEnding::eFile, aResult);
}
nsresult nsFileProtocolHandler::GetURLSpecFromDir(nsIFile* aFile, nsACString& aResult) {
  return GiveSpec(aFile, nsURLEnding::eDirectory, aResult);
}

nsresult nsFileProtocolHandler::GetFileFromURLSpec(const nsACString& aURL, nsIFile** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  nsURLParts parts;
  const nsresult rv = parts.Parse(NS_View(aURL));
  if (NS_FAILED(rv)) return rv;
  return parts.IsFile() ? NS_FileOfURLPath(parts.mPath, aResult) : NS_ERROR_MALFORMED_URI;
}

nsresult nsFileProtocolHandler::ReadURLFile(nsIFile* /*aFile*/, nsIURI** /*aResult*/) {
  return NS_ERROR_NOT_AVAILABLE;  // there are no link files of this kind here
}
