#include "nsCrashReporter.h"

#include <algorithm>
#include <cstdlib>

#include "nsComponentManager.h"
#include "nsCrashHandler.h"
#include "nsHostMessage.h"
#include "nsIFile.h"
#include "nsILocalFile.h"
#include "nsIObserverService.h"
#include "nsIPrefBranch.h"
#include "nsIProperties.h"
#include "nsNativeFile.h"
#include "nsServices.h"
#include "nsString.h"
#include "nsUtf.h"
#include "nsXPCOM.h"

namespace {

constexpr char kEnabledPref[] = "vorel.crashreporter.enabled";
constexpr char kEnabledVariable[] = "VOREL_CRASHREPORTER";
constexpr char kNotesKey[] = "Notes";
constexpr char kFoundTopic[] = "crash-report-found";
constexpr size_t kMarkLimit = 256;

bool IsWanted() {
  if (const char* value = std::getenv(kEnabledVariable)) return std::string_view(value) == "1";
  bool wanted = false;
  if (const auto prefs = do_GetService<nsIPrefBranch>(NS_PREFSERVICE_CONTRACTID))
    (void)prefs->GetBoolPref(kEnabledPref, &wanted);
  return wanted;
}

std::string ReportDirectory() {
  if (const auto directories = do_GetService<nsIProperties>(NS_DIRECTORYSERVICE_CONTRACTID))
    for (const char* key : {"ProfD", "TmpD"}) {
      nsCOMPtr<nsIFile> directory;
      nsCString path;
      if (NS_SUCCEEDED(directories->Get(key, nsIFile::kIID, NS_OutVoid(directory))) && directory &&
          NS_SUCCEEDED(directory->GetNativePath(path)))
        return std::string(path.view()) + "/crashes";
    }
  return {};
}

}  // namespace

nsCrashReporter::nsCrashReporter() : mDirectory(ReportDirectory()) {
  if (const auto manager = nsComponentManager::Current()) {
    const nsAppInfo& info = manager->AppInfo();
    mAnnotations = {
        {"ProductName", info.mName}, {"Version", info.mVersion}, {"BuildID", info.mBuildID}};
  }
  if (IsWanted()) (void)SetEnabled(true);
}

nsCrashReporter::~nsCrashReporter() {
  if (mEnabled) nsCrashHandler::Uninstall();
}

nsresult nsCrashReporter::GetEnabled(bool* aEnabled) {
  if (!aEnabled) return NS_ERROR_NULL_POINTER;
  *aEnabled = mEnabled;
  return NS_OK;
}

nsresult nsCrashReporter::SetEnabled(bool aEnabled) {
  if (aEnabled) {
    if (mDirectory.empty()) return NS_ERROR_NOT_AVAILABLE;
    if (!nsCrashHandler::Install(mDirectory)) return NS_ERROR_FAILURE;
    WriteAnnotations();
  } else {
    nsCrashHandler::Uninstall();
  }
  mEnabled = aEnabled;
  return NS_OK;
}

nsresult nsCrashReporter::GetMinidumpPath(nsILocalFile** aMinidumpPath) {
  return NS_NewNativeLocalFile(nsDependentCString(mDirectory), true, aMinidumpPath);
}

nsresult nsCrashReporter::SetMinidumpPath(nsILocalFile* aMinidumpPath) {
  if (!aMinidumpPath) return NS_ERROR_NULL_POINTER;
  nsCString path;
  const nsresult rv = aMinidumpPath->GetNativePath(path);
  if (NS_FAILED(rv)) return rv;
  const std::string directory(path.view());
  if (mEnabled && !nsCrashHandler::Install(directory)) return NS_ERROR_FAILURE;
  mDirectory = directory;
  return NS_OK;
}

void nsCrashReporter::TellReports() {
  if (!mEnabled) return;
  const auto observers = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID);
  const std::string mark = mDirectory + "/told";
  std::vector<std::string> reports = nsCrashHandler::ListReports(mDirectory);
  std::string told;
  if (NS_SUCCEEDED(NS_ReadFile(mark, &told, kMarkLimit, nsFileKind::eRegular)))
    if (const auto last = std::ranges::find(reports, told); last != reports.end())
      reports.erase(reports.begin(), last + 1);
  if (reports.empty() || !observers) return;
  // Before anybody hears of them: one whose handling crashes is not to be told again and again.
  if (const nsresult rv = NS_ReplaceFile(mark, reports.back()); NS_FAILED(rv))
    NS_HostMessage(eHostWarning, mark + ": " + std::string(NS_ResultName(rv)));
  for (const std::string& report : reports) {
    nsCOMPtr<nsILocalFile> file;
    if (NS_SUCCEEDED(NS_NewNativeLocalFile(nsCString(mDirectory + "/" + report), true,
                                           file.getter_AddRefs())))
      (void)observers->NotifyObservers(file.get(), kFoundTopic,
                                       NS_ToUtf16(std::string_view(report)).c_str());
  }
}

void nsCrashReporter::WriteAnnotations() const {
  std::string lines;
  for (const auto& [key, data] : mAnnotations) lines += key + "=" + data + "\n";
  nsCrashHandler::SetAnnotations(lines);
}

nsresult nsCrashReporter::AnnotateCrashReport(const nsACString& aKey, const nsACString& aData) {
  if (!mEnabled) return NS_ERROR_NOT_INITIALIZED;
  const std::string key(NS_View(aKey));
  if (key.empty() || key.find_first_of(std::string_view("=\n\r\0", 4)) != key.npos ||
      NS_View(aData).find('\0') != std::string_view::npos)
    return NS_ERROR_INVALID_ARG;
  mAnnotations[vorel::Printable(key)] = vorel::Printable(NS_View(aData));
  WriteAnnotations();
  return NS_OK;
}

nsresult nsCrashReporter::AppendAppNotesToCrashReport(const nsACString& aData) {
  const auto notes = mAnnotations.find(kNotesKey);
  const std::string before = notes != mAnnotations.end() ? notes->second : std::string();
  return AnnotateCrashReport(nsDependentCString(kNotesKey),
                             nsCString(before + std::string(NS_View(aData))));
}

nsresult nsCrashReporter::GetSubmitReports(bool* aSubmitReports) {
  if (!aSubmitReports) return NS_ERROR_NULL_POINTER;
  *aSubmitReports = false;
  return NS_OK;
}

// What would be for reports that are sent, and in other formats.
nsresult nsCrashReporter::SetSubmitReports(bool) { return NS_ERROR_NOT_IMPLEMENTED; }
