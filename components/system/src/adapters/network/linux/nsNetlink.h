// Questions to the kernel about links, addresses and routes, and its messages.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "nsError.h"
#include "nsNetlinkMessages.h"
#include "nsUniqueFd.h"

namespace vorel::netlink {

struct Link {
  uint32_t mIndex = 0;
  uint16_t mHardwareType = 0;  ///< ARPHRD_...
  uint8_t mOperState = 0;      ///< IF_OPER_...
  std::string mName;
  std::string mAlias;
  std::string mKind;              ///< "veth", "bridge", ...; empty for hardware and the loopback.
  std::vector<uint8_t> mAddress;  ///< Link-layer address.
  std::string mParent;            ///< The device behind it, where the kernel tells; its bus:
  std::string mParentBus;
  bool mHasIPv4 = false;
  bool mHasIPv6 = false;  ///< Spoken, and not switched off.
};

struct Address {
  uint8_t mFamily = 0;  ///< AF_INET or AF_INET6
  uint32_t mLinkIndex = 0;
  std::array<uint8_t, 16> mBytes{};  ///< Of our end.
  uint8_t mPrefixLength = 0;
  uint32_t mFlags = 0;                   ///< IFA_F_...
  uint32_t mValidLifetime = 0xffffffff;  ///< Seconds.
  uint32_t mPreferredLifetime = 0xffffffff;
};

/// A default route. One with several next hops comes as several.
struct DefaultRoute {
  uint8_t mFamily = 0;
  uint32_t mLinkIndex = 0;
  bool mHasGateway = false;
  std::array<uint8_t, 16> mGateway{};
  uint32_t mMetric = 0;
};

// Payloads of RTM_NEWLINK, RTM_NEWADDR and RTM_NEWROUTE. Any bytes are safe. Nothing for a message
// that says nothing of what is asked here: a link message of a family (they tell of a link's IPv6
// side or a bridge's port), a route that is no default route of the main table.
std::optional<Link> ParseLink(Bytes aPayload);
std::optional<Address> ParseAddress(Bytes aPayload);
std::vector<DefaultRoute> ParseDefaultRoutes(Bytes aPayload);

/// A socket for questions, of the network namespace of the thread that makes it. One thread at a
/// time.
class Socket {
 public:
  Socket();

  /// Everything of a kind, as it was at one moment. Where the kernel says that it changed in
  /// between, or that it lacked something for a moment, it is asked again. NS_ERROR_FAILURE when it
  /// does not answer; Error() says why.
  nsresult Links(std::vector<Link>* aLinks);
  nsresult Addresses(uint8_t aFamily, std::vector<Address>* aAddresses);
  nsresult DefaultRoutes(uint8_t aFamily, std::vector<DefaultRoute>* aRoutes);

  /// The payloads of all messages of RTM_GETLINK, RTM_GETADDR or RTM_GETROUTE, as they come.
  nsresult Payloads(uint16_t aType, uint8_t aFamily, std::vector<std::vector<uint8_t>>* aPayloads);
  /// Asks for a change, once, and waits for the answer: 0, or a number of errno.
  int Change(uint16_t aType, uint16_t aFlags, Bytes aPayload);

  /// The number of errno that the last failure is known by.
  int Error() const { return mError; }

 private:
  enum class Outcome { kDone, kChanged, kFailed };
  using Visitor = std::function<void(uint16_t aType, Bytes aPayload)>;
  bool Open();
  Outcome Failed(int aError);
  template <class Header>
  Outcome Ask(uint16_t aType, const Header& aHeader, const Visitor& aVisit);
  Outcome Answer(const Visitor& aVisit);
  template <class Header>
  nsresult Dump(uint16_t aType, const Header& aHeader, const std::function<void()>& aStart,
                const Visitor& aVisit);

  nsUniqueFd mFd;
  int mError = 0;
  uint32_t mSequence = 0;
  std::vector<uint8_t> mBuffer;
};

}  // namespace vorel::netlink
