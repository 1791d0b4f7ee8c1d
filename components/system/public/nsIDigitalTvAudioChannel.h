// One audio stream of a television or radio service.
#pragma once

#include "nsXPCOMTypes.h"

/// "@vorel/digitaltvaudiochannel;1". A plain value: nothing is checked or converted. Any thread,
/// one at a time.
class nsIDigitalTvAudioChannel : public nsISupports {
 public:
  using Self = nsIDigitalTvAudioChannel;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsIDigitalTvAudioChannel";
  static constexpr nsIID kIID = "ce489190-1c2b-11e2-892e-0800200c9a66"_iid;

  /// Stream types 3 and 4 of a program map.
  static constexpr uint32_t AUDIO_MPEG = 4;
  /// AC-3; the number of its descriptor.
  static constexpr uint32_t AUDIO_AC3 = 106;
  /// Enhanced AC-3; the number of its descriptor.
  static constexpr uint32_t AUDIO_EAC3 = 122;

  /// Three letters of ISO 639-2, as they are broadcast: "fra". Empty when the broadcast names none,
  /// and in a new object.
  virtual nsresult GetLanguage(nsACString& aLanguage) = 0;
  virtual nsresult SetLanguage(const nsACString& aLanguage) = 0;
  /// The PID of the elementary stream, 0 to 8191. 0 in a new object.
  virtual nsresult GetPid(uint32_t* aPid) = 0;
  virtual nsresult SetPid(uint32_t aPid) = 0;
  /// One of AUDIO_... 0 in a new object.
  virtual nsresult GetType(uint32_t* aType) = 0;
  virtual nsresult SetType(uint32_t aType) = 0;

 protected:
  ~nsIDigitalTvAudioChannel() = default;
};
