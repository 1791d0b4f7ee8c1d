// What the configuration store has of interfaces, what of it was confirmed, and what is wrong.
#pragma once

#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "nsPlatformNetworkSettings.h"
#include "nsPlatformNetworkText.h"
#include "nsPlatformRegistry.h"

/// What the store has of one interface.
struct nsStoredSettings {
  std::string mName;
  nsInterfaceSettings mSettings;
};

/// The texts of an interface's settings, as they stand in the store.
struct nsSettingTexts {
  bool mIsDhcp = false;
  std::vector<std::string> mAddresses, mMasks, mGateways, mMetrics, mServers;
};

/// Reads the key of an interface, which must be there. Fails as the store does.
nsresult NS_ReadSettingTexts(nsPlatformRegistry& aRegistry, const std::string& aName,
                             nsSettingTexts* aTexts);

/// What texts say. Those that can't be understood are named in *aProblems, "eth0: SubnetMask ...",
/// and left out.
nsStoredSettings NS_ParseSettings(const std::string& aName, const nsSettingTexts& aTexts,
                                  std::vector<std::string>* aProblems);

/// The version of IGMP that the store has for the whole machine, 1 to 3; nothing when nobody has
/// stored one. Another one is named in *aProblems. Fails as the store does.
nsresult NS_ReadStoredIgmp(nsPlatformRegistry& aRegistry, std::optional<uint32_t>* aVersion,
                           std::vector<std::string>* aProblems);

/// Adds to *aProblems what can't be in force at the same time: an address twice, a gateway outside
/// every net of its interface, an address that no interface can have.
void NS_CheckSettings(std::span<const nsStoredSettings> aSettings,
                      std::vector<std::string>* aProblems);

/// A line for each thing that they say: "dhcp", "address 192.0.2.1/24", "gateway 192.0.2.2",
/// "metric 100", "server 192.0.2.3".
std::string NS_SettingsText(const nsInterfaceSettings& aSettings);
/// The number of ones that a mask begins with; nothing when it has one behind a zero.
std::optional<uint8_t> NS_PrefixLengthOf(const nsSocketAddress& aMask);
/// What is durable of changes: the settings that were confirmed, and the one that is under way.
struct nsNetworkState {
  enum Phase : uint8_t {
    eNone,
    eTrial,      ///< the records tell how to take it back
    eConfirmed,  ///< it stays; what the records left over is to be removed
  };
  /// What has been recorded, in the order in which it is changed: interfaces, and what the whole
  /// machine has, under names that no interface can have.
  using Records = std::vector<std::pair<std::string, std::string>>;
  static constexpr std::string_view kResolver = "", kIgmp = "/igmp";

  std::map<std::string, nsInterfaceSettings> mConfirmed;  ///< By interface.
  std::optional<uint32_t> mIgmpVersion;                   ///< The one that was confirmed.
  std::map<std::string, std::string> mServices;  ///< That managed an interface when it was tried.
  Phase mPhase = eNone;
  Records mRecords;

  std::string Format() const;
  /// Nothing for any other text.
  static std::optional<nsNetworkState> Parse(std::string_view aText);

  friend bool operator==(const nsNetworkState&, const nsNetworkState&) = default;
};
