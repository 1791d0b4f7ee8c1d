#include "nsChannelsFile.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>

#include "nsChannelsFormat.h"
#include "nsDvbText.h"
#include "nsIBDAScanResultDigitalTvService.h"
#include "nsIDigitalTvAudioChannel.h"
#include "nsIFileOutputStream.h"
#include "nsILocalFile.h"
#include "nsIMutableArray.h"
#include "nsIProperties.h"
#include "nsISafeOutputStream.h"
#include "nsLock.h"
#include "nsLogger.h"
#include "nsServices.h"
#include "nsString.h"

namespace {

constexpr char kSafeFileOutputStream[] = "@mozilla.org/network/safe-file-output-stream;1";

nsMutex gChannelsFilePathLock;
std::string gChannelsFilePath NS_GUARDED_BY(gChannelsFilePathLock);  ///< empty: none

constexpr const char* kSystems[] = {"dvb-s", "dvb-c", "dvb-t", "atsc"};

struct CloseFile {
  void operator()(std::FILE* aFile) const { (void)std::fclose(aFile); }
};

/// Nothing when there is no such file.
std::optional<int64_t> TimeOf(const std::string& aPath) {
  std::error_code error;
  const auto time = std::filesystem::last_write_time(aPath, error);
  if (error) return std::nullopt;
  return std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count();
}

std::string Hexadecimal(nsresult aRv) {
  char text[9];
  (void)std::snprintf(text, sizeof text, "%x", static_cast<unsigned>(aRv));
  return text;
}

nsCOMPtr<nsILocalFile> LocalFile(const std::string& aPath) {
  nsCOMPtr<nsILocalFile> file = do_CreateInstance<nsILocalFile>(NS_LOCALFILE_CONTRACTID);
  if (file && NS_FAILED(file->InitWithNativePath(nsDependentCString(aPath)))) file = nullptr;
  return file;
}

std::string TextOf(nsIBDAScanResultDigitalTvService* aService,
                   nsresult (nsIDigitalTvService::*aGetter)(nsACString&)) {
  nsCString text;
  (void)(aService->*aGetter)(text);
  return std::string(text.view());
}

/// Of a missing list there are none.
std::vector<nsChannelsRecord::Audio> AudioOf(nsIDigitalTvService* aService) {
  std::vector<nsChannelsRecord::Audio> audio;
  nsCOMPtr<nsIArray> channels;
  uint32_t length = 0;
  if (NS_FAILED(aService->GetAudioChannels(channels.getter_AddRefs())) || !channels ||
      NS_FAILED(channels->GetLength(&length)))
    return audio;
  for (uint32_t i = 0; i < length; ++i) {
    nsCOMPtr<nsIDigitalTvAudioChannel> channel;
    if (NS_FAILED(channels->QueryElementAt(i, nsIDigitalTvAudioChannel::kIID, NS_OutVoid(channel))))
      continue;
    nsCString language;
    nsChannelsRecord::Audio entry;
    (void)channel->GetLanguage(language);
    (void)channel->GetPid(&entry.mPid);
    (void)channel->GetType(&entry.mKind);
    entry.mLanguage = language.view();
    audio.push_back(entry);
  }
  return audio;
}

nsChannelsRecord RecordOf(nsIBDAScanResultDigitalTvService* aService) {
  nsChannelsRecord record;
  uint16_t video = 0, pmt = 0, id = 0;
  record.mName = TextOf(aService, &nsIDigitalTvService::GetName);
  record.mProvider = TextOf(aService, &nsIDigitalTvService::GetProvider);
  (void)aService->GetFrequency(&record.mFrequency);
  (void)aService->GetBandwidth(&record.mBandwidth);
  (void)aService->GetCodeRateHP(&record.mCodeRateHP);
  (void)aService->GetCodeRateLP(&record.mCodeRateLP);
  (void)aService->GetConstellation(&record.mConstellation);
  (void)aService->GetTransmissionMode(&record.mTransmissionMode);
  (void)aService->GetPriority(&record.mPriority);
  (void)aService->GetHierarchy(&record.mHierarchy);
  (void)aService->GetVideoPid(&video);
  (void)aService->GetPmtPid(&pmt);
  (void)aService->GetServiceId(&id);
  record.mVideoPid = video;
  record.mPmtPid = pmt;
  record.mServiceId = id;
  record.mAudio = AudioOf(aService);
  return record;
}

nsresult Replace(const std::string& aPath, const std::string& aText) {
  const auto file = LocalFile(aPath);
  const auto stream = do_CreateInstance<nsIFileOutputStream>(kSafeFileOutputStream);
  const auto safe = do_QueryInterface<nsISafeOutputStream>(stream);
  if (!file || !safe) return NS_ERROR_NOT_AVAILABLE;
  nsresult rv = stream->Init(file.get(), -1, -1, 0);
  uint32_t written = 0;
  if (NS_SUCCEEDED(rv) && !aText.empty())
    rv = stream->Write(aText.data(), static_cast<uint32_t>(aText.size()), &written);
  return NS_SUCCEEDED(rv) ? safe->Finish() : rv;
}

}  // namespace

nsChannelsFile::nsChannelsFile() : mLog(NS_GetLogger("system.adapter.digitaltvreceiver")) {}

// ---- The place

nsresult nsChannelsFile::initChannelsFilePath(uint32_t aDeliverySystem) {
  nsresult rv;
  const auto directories = do_GetService<nsIProperties>(NS_DIRECTORYSERVICE_CONTRACTID, &rv);
  nsCOMPtr<nsIFile> defaults;
  if (NS_SUCCEEDED(rv)) rv = directories->Get("DefRt", nsIFile::kIID, NS_OutVoid(defaults));
  if (NS_FAILED(rv)) {
    SYSTEM_LOG_ERROR(mLog, "Failed to get app default directory : " + Hexadecimal(rv));
    return NS_ERROR_FAILURE;
  }
  nsCOMPtr<nsIFile> directory;
  rv = defaults->Clone(directory.getter_AddRefs());
  const char* const system =
      aDeliverySystem < std::size(kSystems) ? kSystems[aDeliverySystem] : "dvb-unknown";
  for (const char* const component : {"channelconf", system})
    if (NS_SUCCEEDED(rv)) rv = directory->AppendNative(nsDependentCString(component));
  if (NS_FAILED(rv)) return NS_ERROR_FAILURE;
  // It is there from the second time on. The permissions are kept as they stand, in decimal, where
  // they were meant to be octal; a platform that has such permissions would shut the owner out.
  if (NS_SUCCEEDED(directory->Create(nsIFile::DIRECTORY_TYPE, 777)))
    (void)directory->SetPermissions(0755);
  nsCString path;
  rv = directory->AppendNative(nsDependentCString("channels.conf"));
  if (NS_SUCCEEDED(rv)) rv = directory->GetNativePath(path);
  if (NS_FAILED(rv)) return NS_ERROR_FAILURE;
  nsAutoLock lock(gChannelsFilePathLock);
  gChannelsFilePath = path.view();
  return NS_OK;
}

void nsChannelsFile::DropPath() {
  nsAutoLock lock(gChannelsFilePathLock);
  gChannelsFilePath.clear();
}

std::string nsChannelsFile::Path() {
  nsAutoLock lock(gChannelsFilePathLock);
  return gChannelsFilePath;
}

// ---- Reading

nsresult nsChannelsFile::parseChannelsFile(nsIMutableArray* aServices) {
  nsresult rv;
  const auto audio = do_CreateInstance<nsIMutableArray>(VOREL_ARRAY_CONTRACTID, &rv);
  if (NS_FAILED(rv)) {
    SYSTEM_LOG_ERROR(mLog, "Failed to create nsIArray instance \"");
    return rv;
  }
  const std::string path = Path();
  if (path.empty()) return NS_ERROR_NOT_AVAILABLE;
  if (const auto time = TimeOf(path)) mChannelsFileTime = *time;
  // A pipe in its place would keep us waiting.
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) return NS_ERROR_NOT_AVAILABLE;
  const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.c_str(), "r"));
  if (!file) return NS_ERROR_NOT_AVAILABLE;

  char line[kMaxChannelsLine + 1];
  while (std::fgets(line, sizeof line, file.get())) {
    std::string name, provider;
    nsChannelsWords words;
    if (NS_FAILED(NS_SplitChannelsLine(line, &name, &provider, &words)))
      return NS_ERROR_INVALID_ARG;
    nsChannelsRecord record;
    if (!NS_ReadChannelsWords(words, &record)) SYSTEM_LOG_ERROR(mLog, "Failed to parse audio pids");
    nsCString text;
    if (NS_FAILED(rv = decodeDvbText(name, text))) {
      SYSTEM_LOG_ERROR(mLog, "Failed to convert service name");
      continue;
    }
    record.mName = text.view();
    if (NS_FAILED(rv = decodeDvbText(provider, text))) {
      SYSTEM_LOG_ERROR(mLog, "Failed to convert provider name");
      continue;
    }
    record.mProvider = text.view();
    rv = AppendService(record, audio.get(), aServices);
  }
  return rv;
}

nsresult nsChannelsFile::AppendService(const nsChannelsRecord& aRecord, nsIMutableArray* aAudio,
                                       nsIMutableArray* aServices) {
  nsresult rv;
  (void)aAudio->Clear();
  for (const auto& audio : aRecord.mAudio) {
    const auto channel =
        do_CreateInstance<nsIDigitalTvAudioChannel>("@vorel/digitaltvaudiochannel;1", &rv);
    if (NS_FAILED(rv)) return rv;
    (void)channel->SetLanguage(nsDependentCString(audio.mLanguage));
    (void)channel->SetPid(audio.mPid);
    (void)channel->SetType(audio.mKind);
    (void)aAudio->AppendElement(channel.get(), false);
  }
  const auto service = do_CreateInstance<nsIBDAScanResultDigitalTvService>(
      "@vorel/bdascanresultdigitaltvservice;1", &rv);
  if (NS_FAILED(rv)) return rv;
  (void)service->SetName(nsDependentCString(aRecord.mName));
  (void)service->SetFrequency(aRecord.mFrequency);
  (void)service->SetServiceId(static_cast<uint16_t>(aRecord.mServiceId));
  (void)service->SetProvider(nsDependentCString(aRecord.mProvider));
  (void)service->SetVideoPid(static_cast<uint16_t>(aRecord.mVideoPid));
  (void)service->SetPmtPid(static_cast<uint16_t>(aRecord.mPmtPid));
  (void)service->SetAudioChannels(aAudio);
  (void)service->SetBandwidth(aRecord.mBandwidth);
  (void)service->SetCodeRateHP(aRecord.mCodeRateHP);
  (void)service->SetCodeRateLP(aRecord.mCodeRateLP);
  (void)service->SetConstellation(aRecord.mConstellation);
  (void)service->SetTransmissionMode(aRecord.mTransmissionMode);
  (void)service->SetPriority(aRecord.mPriority);
  (void)service->SetHierarchy(aRecord.mHierarchy);
  rv = aServices->AppendElement(service.get(), false);
  if (NS_FAILED(rv)) SYSTEM_LOG_ERROR(mLog, "Failed to AppendElement to nsIArray \"");
  return rv;
}

nsresult nsChannelsFile::Refresh(nsIMutableArray* aServices) {
  const std::string path = Path();
  const auto time = path.empty() ? std::nullopt : TimeOf(path);
  if (!time || (*time == mChannelsFileTime && !mHasWritten)) return NS_OK;
  mHasWritten = false;
  (void)aServices->Clear();
  mChannelsFileTime = *time;
  return parseChannelsFile(aServices);
}

// ---- Writing

nsresult nsChannelsFile::writeChannelsFile(nsIArray* aServices) {
  uint32_t length = 0;
  nsresult rv = aServices ? aServices->GetLength(&length) : NS_ERROR_NULL_POINTER;
  if (NS_FAILED(rv)) return NS_ERROR_FAILURE;
  std::string text;
  for (uint32_t i = 0; i < length && NS_SUCCEEDED(rv); ++i) {
    nsCOMPtr<nsIBDAScanResultDigitalTvService> service;
    rv = aServices->QueryElementAt(i, nsIBDAScanResultDigitalTvService::kIID, NS_OutVoid(service));
    if (NS_SUCCEEDED(rv))
      text += NS_WriteChannelsLine(RecordOf(service.get()));
    else
      SYSTEM_LOG_ERROR(mLog,
                       "Incorrect array object type, should be nsIBDAScanResultDigitalTvService");
  }
  const std::string path = Path();
  if (path.empty() || NS_FAILED(Replace(path, text))) {
    SYSTEM_LOG_ERROR(mLog, "Unable to open " + path);
    return NS_ERROR_FAILURE;
  }
  // Its time is not noted: who asks next reads back what stands in the file, also when the time of
  // the file is too coarse to tell.
  mHasWritten = true;
  return NS_SUCCEEDED(rv) ? NS_OK : NS_ERROR_FAILURE;
}
