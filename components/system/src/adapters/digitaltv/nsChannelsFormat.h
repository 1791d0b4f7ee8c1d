// A line of the channels file, read and written. The two are not mirror images: other programs read
// these files, and what they hold is settled.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "nsError.h"

/// What a line says of a service; all zero and empty in a new object.
struct nsChannelsRecord {
  struct Audio {
    std::string mLanguage;
    uint32_t mPid = 0;
    uint32_t mKind = 0;  ///< nsIDigitalTvAudioChannel::AUDIO_...
    friend bool operator==(const Audio&, const Audio&) = default;
  };

  std::string mName, mProvider;  ///< As they stand in the file, not decoded.
  uint32_t mFrequency = 0;       ///< kHz
  uint32_t mBandwidth = 0;       ///< MHz
  uint32_t mCodeRateHP = 0, mCodeRateLP = 0, mConstellation = 0, mTransmissionMode = 0;
  uint32_t mPriority = 0;
  uint32_t mHierarchy = 0;
  uint32_t mVideoPid = 0, mPmtPid = 0;
  std::vector<Audio> mAudio;
  uint32_t mServiceId = 0;

  friend bool operator==(const nsChannelsRecord&, const nsChannelsRecord&) = default;
};

/// The longest line that is read as one, its line end included; of a longer one the rest is read as
/// the next line.
inline constexpr size_t kMaxChannelsLine = 511;

/// The kinds of audio in the order of their groups in a line.
inline constexpr uint32_t kChannelsAudioKinds[] = {4, 106, 122};

/// The fields of a line as words, before their meaning is looked at. A field that is missing is
/// empty.
struct nsChannelsWords {
  std::string mFrequency, mInversion, mBandwidth, mCodeRateHP, mCodeRateLP, mConstellation,
      mTransmissionMode, mGuard, mHierarchy, mPids, mAudio, mServiceId;
};

/// Splits a line. NS_ERROR_INVALID_ARG when it has no "(" or no ")" behind that, or when one of the
/// two texts in front of them has 100 bytes or more; that is the one thing that ends the reading of
/// a file. Any bytes will do.
nsresult NS_SplitChannelsLine(std::string_view aLine, std::string* aName, std::string* aProvider,
                              nsChannelsWords* aWords);

/// The meaning of a line's words. Unknown words have the meanings that the format gives them. False
/// when the audio text could not be read to its end; the channels before that place are in it.
bool NS_ReadChannelsWords(const nsChannelsWords& aWords, nsChannelsRecord* aRecord);

/// A line with its line end. Neither name nor provider is escaped.
std::string NS_WriteChannelsLine(const nsChannelsRecord& aRecord);

/// "120+1024". Always succeeds: what is not understood is 0.
nsresult parseVideoAndPmtPids(std::string_view aText, uint32_t* aVideo, uint32_t* aPmt);

/// One group of "130=fra,131;140", from aPosition on, which moves behind the last byte looked at.
/// Channels go to the end of aChannels. *aMoreGroups is 1 when the group ended with ";".
/// NS_ERROR_FAILURE for a language without a PID.
nsresult parseAudioGroup(uint32_t* aPosition, std::string_view aText,
                         std::vector<nsChannelsRecord::Audio>* aChannels, uint32_t aKind,
                         int32_t* aMoreGroups);
