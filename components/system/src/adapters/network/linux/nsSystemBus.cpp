#include "nsSystemBus.h"

#include <cerrno>

namespace {

constexpr uint64_t kPatience = 10'000'000;  // µs
const nsBusObject kBus{"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"};

}  // namespace

std::string NS_BusText(sd_bus_message* aMessage, char aType) {
  const char* text = nullptr;
  return sd_bus_message_read_basic(aMessage, aType, &text) > 0 && text ? text : "";
}

nsresult nsSystemBus::Open(const std::string& aAddress) {
  int error = 0;
  if (aAddress.empty()) {
    error = sd_bus_open_system(&mBus);
  } else {
    error = sd_bus_new(&mBus);
    if (error >= 0) error = sd_bus_set_address(mBus, aAddress.c_str());
    if (error >= 0) error = sd_bus_set_bus_client(mBus, true);
    if (error >= 0) error = sd_bus_start(mBus);
  }
  return error >= 0 ? NS_OK : NS_ERROR_NOT_AVAILABLE;
}

bool nsSystemBus::HasService(const char* aName) {
  nsBusMessage answer;
  int has = 0;
  return mBus && NS_SUCCEEDED(Call(kBus, "NameHasOwner", &answer, "s", aName)) &&
         sd_bus_message_read_basic(answer.get(), 'b', &has) > 0 && has;
}

nsBusMessage nsSystemBus::NewCall(const nsBusObject& aObject, const char* aMethod) {
  sd_bus_message* call = nullptr;
  if (!mBus || sd_bus_message_new_method_call(mBus, &call, aObject.mService, aObject.mPath.c_str(),
                                              aObject.mInterface, aMethod) < 0)
    return nullptr;
  nsBusMessage owned(call);
  return sd_bus_message_set_auto_start(call, false) >= 0 ? std::move(owned) : nullptr;
}

nsresult nsSystemBus::Send(sd_bus_message* aCall, nsBusMessage* aAnswer) {
  sd_bus_error_free(&mError);
  sd_bus_message* answer = nullptr;
  const int error = sd_bus_call(mBus, aCall, kPatience, &mError, &answer);
  const nsBusMessage owned(answer);
  if (error >= 0) {
    if (aAnswer) aAnswer->reset(sd_bus_message_ref(answer));
    return NS_OK;
  }
  const std::string name = mError.name ? mError.name : "";
  const auto ends = [&](const char* aEnd) { return name.ends_with(aEnd); };
  if (error == -EACCES || error == -EPERM || ends(".AccessDenied") || ends(".PermissionDenied") ||
      ends(".NotAuthorized") || ends(".InteractiveAuthorizationRequired"))
    return NS_ERROR_FILE_ACCESS_DENIED;
  if (ends(".UnknownObject") || ends(".UnknownMethod") || ends(".UnknownDevice") ||
      ends(".InvalidConnection") || ends(".UnknownConnection") || ends(".NoSuchLink"))
    return NS_ERROR_FILE_NOT_FOUND;
  if (error == -ENOTCONN || error == -ECONNRESET || ends(".ServiceUnknown") ||
      ends(".NameHasNoOwner") || ends(".Disconnected"))
    return NS_ERROR_OFFLINE;
  return error == -ETIMEDOUT ? NS_ERROR_NET_TIMEOUT : NS_ERROR_FAILURE;
}

nsresult nsSystemBus::Property(const nsBusObject& aObject, const char* aProperty, const char* aType,
                               nsBusMessage* aAnswer) {
  const nsBusObject properties{aObject.mService, aObject.mPath, "org.freedesktop.DBus.Properties"};
  const nsresult rv = Call(properties, "Get", aAnswer, "ss", aObject.mInterface, aProperty);
  if (NS_FAILED(rv)) return rv;
  return sd_bus_message_enter_container(aAnswer->get(), 'v', aType) > 0 ? NS_OK : NS_ERROR_FAILURE;
}

nsresult nsSystemBus::GetText(const nsBusObject& aObject, const char* aProperty,
                              std::string* aText) {
  nsBusMessage answer;
  if (NS_SUCCEEDED(Property(aObject, aProperty, "s", &answer))) {
    *aText = NS_BusText(answer.get(), 's');
    return NS_OK;
  }
  const nsresult rv = Property(aObject, aProperty, "o", &answer);
  if (NS_SUCCEEDED(rv)) *aText = NS_BusText(answer.get(), 'o');
  return rv;
}

nsresult nsSystemBus::GetNumber(const nsBusObject& aObject, const char* aProperty,
                                uint32_t* aNumber) {
  nsBusMessage answer;
  const nsresult rv = Property(aObject, aProperty, "u", &answer);
  if (NS_FAILED(rv)) return rv;
  return sd_bus_message_read_basic(answer.get(), 'u', aNumber) > 0 ? NS_OK : NS_ERROR_FAILURE;
}
