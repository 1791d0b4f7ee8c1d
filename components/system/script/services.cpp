// Clock, fonts, maintenance and general settings.
#include "nsIFile.h"
#include "nsIObserver.h"
#include "nsISystemClock.h"
#include "nsISystemFont.h"
#include "nsISystemGeneralSettings.h"
#include "nsISystemMACStructure.h"
#include "nsISystemMaintenance.h"
#include "nsISystemRequest.h"
#include "nsSystemScript.h"

namespace {

constexpr auto kClock =
    nsBind<nsISystemClock,
           nsAttribute<"timezone", &nsISystemClock::GetTimezone, &nsISystemClock::SetTimezone>,
           nsAttribute<"localTime", &nsISystemClock::GetLocalTime, &nsISystemClock::SetLocalTime>,
           nsAttribute<"utcTime", &nsISystemClock::GetUtcTime, &nsISystemClock::SetUtcTime>,
           nsMethod<"getSupportedTimezones", &nsISystemClock::GetSupportedTimezones, "aCount",
                    "aTimezones[aCount]">>();

constexpr auto kFont =
    nsBind<nsISystemFont, nsMethod<"synchronize", &nsISystemFont::Synchronize, "aDirectory">,
           nsMethod<"addFont", &nsISystemFont::AddFont, "aFile">,
           nsMethod<"removeFont", &nsISystemFont::RemoveFont, "aFile">,
           nsMethod<"hasFont", &nsISystemFont::HasFont, "aKey", "aFound">,
           nsMethod<"findFontFace", &nsISystemFont::FindFontFace, "aFamily", "aStyle", "aWeight",
                    "aFound", "aFile">,
           nsMethod<"isFontFile", &nsISystemFont::IsFontFile, "aFile", "aIsFontFile">>();

constexpr auto kMaintenance =
    nsBind<nsISystemMaintenance,
           // Kept places do nothing.
           nsLeftOut<&nsISystemMaintenance::Reserved3>,
           nsMethod<"crashProcess", &nsISystemMaintenance::CrashProcess>,
           nsMethod<"hangMainThread", &nsISystemMaintenance::HangMainThread>,
           nsMethod<"runCommand", &nsISystemMaintenance::RunCommand, "aCommandLine">,
           nsLeftOut<&nsISystemMaintenance::Reserved7>, nsLeftOut<&nsISystemMaintenance::Reserved8>,
           nsLeftOut<&nsISystemMaintenance::Reserved9>>();

constexpr auto kRequest =
    nsBind<nsISystemRequest, nsMethod<"asyncStart", &nsISystemRequest::AsyncStart, "aObserver">,
           nsMethod<"cancel", &nsISystemRequest::Cancel>,
           nsAttribute<"status", &nsISystemRequest::GetStatus>>();

constexpr auto kRequestFormat = nsBind<nsISystemRequestFormat>();

constexpr auto kRequestCommit = nsBind<nsISystemRequestCommit>();

constexpr auto kRequestCheckDataDisk = nsBind<nsISystemRequestCheckDataDisk>();

constexpr auto kGeneralSettings =
    nsBind<nsISystemGeneralSettings,
           nsAttribute<"hostName", &nsISystemGeneralSettings::GetHostName,
                       &nsISystemGeneralSettings::SetHostName>,
           nsAttribute<"showCursor", &nsISystemGeneralSettings::GetShowCursor,
                       &nsISystemGeneralSettings::SetShowCursor>,
           nsAttribute<"deviceId", &nsISystemGeneralSettings::GetDeviceId>,
           nsAttribute<"mac", &nsISystemGeneralSettings::GetMac>,
           nsAttribute<"uuid", &nsISystemGeneralSettings::GetUuid>,
           nsAttribute<"platform", &nsISystemGeneralSettings::GetPlatform>,
           nsAttribute<"version", &nsISystemGeneralSettings::GetVersion>,
           nsAttribute<"field1", &nsISystemGeneralSettings::GetField1,
                       &nsISystemGeneralSettings::SetField1>,
           nsAttribute<"field2", &nsISystemGeneralSettings::GetField2,
                       &nsISystemGeneralSettings::SetField2>,
           nsAttribute<"field3", &nsISystemGeneralSettings::GetField3,
                       &nsISystemGeneralSettings::SetField3>,
           nsAttribute<"field4", &nsISystemGeneralSettings::GetField4,
                       &nsISystemGeneralSettings::SetField4>,
           nsAttribute<"field5", &nsISystemGeneralSettings::GetField5,
                       &nsISystemGeneralSettings::SetField5>>();

}  // namespace

nsScriptTableList NS_ServiceTables() {
  return {kClock,         kFont,          kMaintenance,          kRequest,
          kRequestFormat, kRequestCommit, kRequestCheckDataDisk, kGeneralSettings};
}
