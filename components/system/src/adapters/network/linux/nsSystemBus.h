// Calls to services of the system's message bus.
#pragma once

#include <systemd/sd-bus.h>

#include <memory>
#include <string>

#include "nsError.h"

struct nsBusMessageUnref {
  void operator()(sd_bus_message* aMessage) const { sd_bus_message_unref(aMessage); }
};
using nsBusMessage = std::unique_ptr<sd_bus_message, nsBusMessageUnref>;

/// A service's object, by one of its interfaces.
struct nsBusObject {
  const char* mService;
  std::string mPath;
  const char* mInterface;
};

/// A connection of its own. Each call waits for its answer, ten seconds at most. One thread at a
/// time.
class nsSystemBus {
 public:
  nsSystemBus() = default;
  nsSystemBus(const nsSystemBus&) = delete;
  nsSystemBus& operator=(const nsSystemBus&) = delete;
  ~nsSystemBus() {
    sd_bus_flush_close_unref(mBus);
    sd_bus_error_free(&mError);
  }

  /// NS_ERROR_NOT_AVAILABLE on a machine without a bus. aAddress is empty for the system's.
  nsresult Open(const std::string& aAddress);
  /// Whether a service is there; it is not started for that.
  bool HasService(const char* aName);

  /// A call that the caller fills with arguments; null when memory lacks.
  nsBusMessage NewCall(const nsBusObject& aObject, const char* aMethod);
  /// Sends it, and waits for the answer. NS_ERROR_FILE_ACCESS_DENIED when the service refuses for
  /// lack of a right, NS_ERROR_FILE_NOT_FOUND for an object that is not there, NS_ERROR_OFFLINE
  /// when the service or the bus is not, NS_ERROR_NET_TIMEOUT, else NS_ERROR_FAILURE. No service is
  /// started for it.
  nsresult Send(sd_bus_message* aCall, nsBusMessage* aAnswer = nullptr);
  /// Both, with arguments of basic types, as sd_bus_message_append takes them.
  template <class... Arguments>
  nsresult Call(const nsBusObject& aObject, const char* aMethod, nsBusMessage* aAnswer,
                const char* aTypes = "", Arguments... aArguments) {
    const nsBusMessage call = NewCall(aObject, aMethod);
    if (!call) return mBus ? NS_ERROR_OUT_OF_MEMORY : NS_ERROR_OFFLINE;
    if constexpr (sizeof...(Arguments) > 0)
      if (sd_bus_message_append(call.get(), aTypes, aArguments...) < 0)
        return NS_ERROR_OUT_OF_MEMORY;
    return Send(call.get(), aAnswer);
  }
  nsresult GetText(const nsBusObject& aObject, const char* aProperty, std::string* aText);
  nsresult GetNumber(const nsBusObject& aObject, const char* aProperty, uint32_t* aNumber);

  /// What the service said when the last call failed.
  std::string Reason() const { return mError.message ? mError.message : ""; }

 private:
  nsresult Property(const nsBusObject& aObject, const char* aProperty, const char* aType,
                    nsBusMessage* aAnswer);

  sd_bus* mBus = nullptr;
  sd_bus_error mError{};
};

/// A text out of an answer: of an object path or a string.
std::string NS_BusText(sd_bus_message* aMessage, char aType);
