// The kernel's messages of rtnetlink: headers, attributes, and where they come from.
#pragma once

#include <libmnl/libmnl.h>
#include <linux/netlink.h>
#include <sys/types.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <type_traits>
#include <vector>

namespace vorel::netlink {

using Bytes = std::span<const uint8_t>;

/// A record at the head of the bytes, copied out; false when there are not so many.
template <class T>
bool Take(Bytes aBytes, T* aValue) {
  static_assert(std::is_trivially_copyable_v<T>);
  if (aBytes.size() < sizeof(T)) return false;
  std::memcpy(aValue, aBytes.data(), sizeof(T));
  return true;
}

template <class T>
T ValueOr(Bytes aBytes, T aDefault) {
  (void)Take(aBytes, &aDefault);
  return aDefault;
}

/// The fixed header of a payload, and the attributes behind it.
template <class Header>
std::optional<Bytes> Split(Bytes aPayload, Header* aHeader) {
  if (!Take(aPayload, aHeader)) return std::nullopt;
  return aPayload.subspan(std::min<size_t>(MNL_ALIGN(sizeof(Header)), aPayload.size()));
}

/// Calls aVisit(const nlmsghdr&, Bytes aPayload) for the messages in a buffer, as far as they are
/// whole. Stops, with false, when aVisit says so or when what follows is no message. Any bytes are
/// safe.
template <class Visit>
bool ForEachMessage(Bytes aBuffer, Visit aVisit) {
  int left = static_cast<int>(aBuffer.size());
  const auto* message = reinterpret_cast<const nlmsghdr*>(aBuffer.data());
  for (; left >= static_cast<int>(sizeof(nlmsghdr)); message = mnl_nlmsg_next(message, &left)) {
    if (!mnl_nlmsg_ok(message, left)) return false;
    const size_t at = aBuffer.size() - static_cast<size_t>(left);
    nlmsghdr header;
    (void)Take(aBuffer.subspan(at), &header);  // nothing guarantees how it is aligned
    // libmnl takes lengths of 2 GB and more for negative ones, which fit.
    if (header.nlmsg_len > static_cast<size_t>(left)) return false;
    if (!aVisit(header, aBuffer.subspan(at + sizeof header, header.nlmsg_len - sizeof header)))
      return false;
  }
  return true;
}

/// Calls aVisit(uint16_t aType, Bytes aValue) for each whole attribute. Any bytes are safe.
template <class Visit>
void ForEachAttribute(Bytes aBytes, Visit aVisit) {
  // Not to the end that libmnl gives a message: that is rounded up.
  int left = static_cast<int>(aBytes.size());
  const auto* attribute = reinterpret_cast<const nlattr*>(aBytes.data());
  while (mnl_attr_ok(attribute, left)) {
    const auto* value = static_cast<const uint8_t*>(mnl_attr_get_payload(attribute));
    aVisit(mnl_attr_get_type(attribute), Bytes(value, mnl_attr_get_payload_len(attribute)));
    const nlattr* const next = mnl_attr_next(attribute);
    left -= static_cast<int>(reinterpret_cast<const uint8_t*>(next) -
                             reinterpret_cast<const uint8_t*>(attribute));
    attribute = next;
  }
}

/// What there is of one datagram of the kernel; those of other programs are passed over. Below 0,
/// with errno, when there is none; *aIsCut when it did not fit.
ssize_t Receive(int aSocket, std::span<uint8_t> aBuffer, bool* aIsCut);

}  // namespace vorel::netlink
