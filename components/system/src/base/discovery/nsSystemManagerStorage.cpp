// Discovery of volumes.
#include <new>

#include "nsDebug.h"
#include "nsIArray.h"
#include "nsIFile.h"
#include "nsILocalFile.h"
#include "nsPlatformVolumes.h"
#include "nsServices.h"
#include "nsSystemAdapterStorage.h"
#include "nsSystemConnector.h"
#include "nsSystemDevice.h"
#include "nsSystemManager.h"

namespace {

constexpr int kLetters = 26;

// What the content of a stick may be for. Each is tried on each volume, in this order.
constexpr const char16_t* kExternalProfiles[] = {
    u"storage-external-release-firmware-injector",
    u"storage-external-addon-injector",
    u"storage-external-richmedia-player-injector",
    u"storage-external-medias-reader-injector",
    u"storage-external-medias-reader",
};

std::string Describe(char aLetter, uint32_t aKind,
                     const nsPlatformVolumes::VolumeInformation& aVolume) {
  // The two numbers are written as the signed ones that the log has always had.
  const auto number = [](uint32_t aNumber) {
    return std::to_string(static_cast<int32_t>(aNumber));
  };
  return std::string("Path = ") + aLetter + ":\\ volumeName = " + aVolume.mLabel +
         " type = " + number(aKind) + " \n volumeSerialNumber=" + number(aVolume.mSerialNumber) +
         " maximumComponentLength=" + number(aVolume.mMaximumComponentLength) +
         " fileSystemName=" + aVolume.mFileSystemName;
}

}  // namespace

nsresult nsSystemManager::ExploreVolumes() {
  uint32_t drives = 0;
  (void)mPlatform->mVolumes->ReadDriveMask(&drives);
  for (int i = 0; i < kLetters; ++i)
    if (drives >> i & 1) (void)AddAdapterForDriveLetter(static_cast<char>('A' + i));
  return NS_OK;
}

nsresult nsSystemManager::AddAdapterForDriveLetter(char aLetter) {
  nsPlatformVolumes& volumes = *mPlatform->mVolumes;
  // A kind that can't be read is an unknown one.
  uint32_t kind = nsPlatformVolumes::kDriveUnknown;
  (void)volumes.ReadDriveKind(aLetter, &kind);
  if (kind != nsPlatformVolumes::kDriveRemovable && kind != nsPlatformVolumes::kDriveFixed)
    return NS_OK;

  nsPlatformVolumes::VolumeInformation information;
  (void)volumes.ReadVolumeInformation(aLetter, &information);
  SYSTEM_LOG_DEBUG(mLogger, Describe(aLetter, kind, information));

  nsPlatformVolumes::VolumeHandle volume;
  if (NS_FAILED(volumes.OpenVolume(aLetter, &volume))) return NS_ERROR_FAILURE;
  uint8_t bus = nsPlatformVolumes::kBusUnknown;
  const bool hasBus = NS_SUCCEEDED(volumes.ReadBusType(volume, &bus));
  SYSTEM_LOG_DEBUG(mLogger, "BusType=" + std::to_string(bus));

  bool accepted;
  if (kind == nsPlatformVolumes::kDriveRemovable) {
    SYSTEM_LOG_DEBUG(mLogger, "DRIVE_REMOVABLE");
    accepted = true;
  } else {
    SYSTEM_LOG_DEBUG(mLogger, "DRIVE_FIXED");
    accepted = hasBus && bus == nsPlatformVolumes::kBusUsb;
  }
  if (!accepted) {
    SYSTEM_LOG_DEBUG(mLogger, "Bad device type");
    return NS_ERROR_FAILURE;
  }

  const nsCOMPtr<nsSystemAdapterStorage> adapter(new (std::nothrow) nsSystemAdapterStorage);
  NS_ENSURE_TRUE(adapter, NS_ERROR_UNEXPECTED);
  nsresult rv = NewSystemDevice(adapter->mDevice.getter_AddRefs(), nsString(u"mass-storage"),
                                nsString(u"mass storage"));
  NS_ENSURE_SUCCESS(rv, rv);
  nsCOMPtr<nsISystemConnector> connector;
  rv = NewSystemConnector(connector.getter_AddRefs(), nsString(u"usb"), nsString(u"*"),
                          nsString(u"usb connector"), nsString(u"type/usb"), nullptr, nullptr,
                          nullptr);
  NS_ENSURE_SUCCESS(rv, rv);
  adapter->mConnectors.push_back(connector);
  rv = AddAdapter(adapter.get());
  NS_ENSURE_SUCCESS(rv, rv);

  std::string root;
  rv = volumes.ReadRootDirectory(aLetter, &root);
  NS_ENSURE_SUCCESS(rv, rv);
  nsCOMPtr<nsILocalFile> directory;
  rv = NS_NewNativeLocalFile(nsCString(root), true, directory.getter_AddRefs());
  NS_ENSURE_SUCCESS(rv, rv);
  (void)adapter->SetDirectory(directory.get());

  for (const char16_t* profile : kExternalProfiles) {
    rv = AddProfile(*adapter, profile);
    if (NS_FAILED(rv)) return rv;
  }
  return NS_OK;
}

nsresult nsSystemManager::GetAdapterForDriveLetter(char aLetter,
                                                   nsISystemAdapterStorage** aAdapter) {
  *aAdapter = nullptr;
  nsCOMPtr<nsIArray> adapters;
  nsresult rv = GetAdaptersByIId(nsISystemAdapterStorage::kIID, adapters.getter_AddRefs());
  NS_ENSURE_SUCCESS(rv, rv);

  std::string root;
  rv = mPlatform->mVolumes->ReadRootDirectory(aLetter, &root);
  if (rv == NS_ERROR_NOT_AVAILABLE)
    return NS_OK;  // a letter that never was: no adapter can have it
  NS_ENSURE_SUCCESS(rv, rv);

  uint32_t length;
  rv = adapters->GetLength(&length);
  NS_ENSURE_SUCCESS(rv, rv);
  for (uint32_t i = 0; i < length; ++i) {
    nsCOMPtr<nsISystemAdapterStorage> adapter;
    nsCOMPtr<nsIFile> directory;
    nsCString path;
    if (NS_FAILED(
            adapters->QueryElementAt(i, nsISystemAdapterStorage::kIID, NS_OutVoid(adapter))) ||
        NS_FAILED(adapter->GetDirectory(directory.getter_AddRefs())) || !directory ||
        NS_FAILED(directory->GetNativePath(path)))
      continue;
    // Exactly, byte by byte: directories below the root of the drive are other adapters.
    if (path == root) {
      adapter.forget(aAdapter);
      return NS_OK;
    }
  }
  return NS_OK;
}
