// Outputs, modes and the arrangement of the screen, by the RandR extension of the display server.
#pragma once

#include <xcb/randr.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "nsEdid.h"
#include "nsXConnection.h"

/// One mode of the server's list. Sizes are in pixels, of the picture that is not turned.
struct nsRandrMode {
  uint32_t mId = 0;
  uint32_t mWidth = 0;
  uint32_t mHeight = 0;
  uint32_t mFrequency = 0;  ///< Rounded to whole Hz, as people do; 0 when it can't be told.
  bool mInterlaced = false;
};

/// What shows a part of the screen on outputs.
struct nsRandrCrtc {
  uint32_t mId = 0;
  int32_t mX = 0;
  int32_t mY = 0;
  uint32_t mMode = 0;      ///< 0: off.
  uint16_t mRotation = 1;  ///< The extension's bits: 1, 2, 4, 8 for 0, 90, 180, 270 degrees.
  uint16_t mRotations = 1;
  std::vector<uint32_t> mOutputs;

  bool operator==(const nsRandrCrtc&) const = default;
};

struct nsRandrOutput {
  uint32_t mId = 0;
  std::string mName;
  bool mIsConnected = false;
  bool mIsPrimary = false;
  uint32_t mCrtc = 0;  ///< 0: the output is off.
  /// What can be chosen: each size, frequency and interlacing once. Where the server has several of
  /// a kind, the one in force counts, then the preferred one, then the first.
  std::vector<nsRandrMode> mModes;
  nsEdid mEdid;
  std::string mDescription;   ///< The first block of its EDID, as bytes; empty when not told.
  uint32_t mConnectorId = 0;  ///< The kernel's number of the connector; 0 when not told.
  uint32_t mBacklight = 0;    ///< The property's atom; 0 without one.
  int32_t mBacklightMin = 0, mBacklightMax = 0, mBacklightValue = 0;
};

/// By which two moments of a server are told apart: a change of outputs, crtcs or the screen lies
/// between them when the stamps differ.
struct nsRandrStamp {
  xcb_timestamp_t mSet = 0, mConfigured = 0;
  bool operator==(const nsRandrStamp&) const = default;

  /// Nothing when the server does not answer.
  static std::optional<nsRandrStamp> Read(nsXConnection& aConnection);
};

/// The whole of it, as of one moment.
struct nsRandrPicture {
  std::vector<nsRandrOutput> mOutputs;  ///< In the server's order, connected or not.
  std::vector<nsRandrCrtc> mCrtcs;
  std::map<uint32_t, nsRandrMode> mModes;
  uint32_t mBitsPerPixel = 0;
  uint16_t mWidth = 0, mHeight = 0;  ///< Of the screen.
  nsRandrStamp mStamp;

  const nsRandrCrtc* FindCrtc(uint32_t aId) const;
  /// The mode that a card is in; null when it is off.
  const nsRandrMode* ModeOf(const nsRandrCrtc& aCrtc) const;
};

/// One thread at a time. Failures leave the connection in Works, or not: a caller looks at that.
class nsRandr {
 public:
  /// Null when there is no server, or one without RandR 1.3 or later.
  static std::unique_ptr<nsRandr> Open();

  bool Works() const { return mConnection->Works(); }
  nsXConnection& Connection() { return *mConnection; }

  /// Looks at everything. Outputs are not probed, which takes its time: the server does that by
  /// itself, but for those that nobody has looked at since it started. Who finds one without a
  /// description has it probe once.
  bool Read(nsRandrPicture* aPicture);

  /// Makes the arrangement that of the crtcs given, which are all that the picture has. The screen
  /// gets the size of them all; when something lies left of it or above, all are moved. First it
  /// grows, then modes are set, then it shrinks, so that it is dark at no time; nobody else can
  /// change it meanwhile. When a step fails, the former arrangement is set again. The reason is
  /// written on failure.
  bool Arrange(const nsRandrPicture& aPicture, std::vector<nsRandrCrtc> aWanted,
               std::string* aReason);
  /// aValue in the property's own range.
  bool SetBacklight(const nsRandrOutput& aOutput, int32_t aValue);

  /// A number that the root window bears under a name for as long as the server runs; nothing
  /// without.
  std::optional<uint32_t> ReadRootNumber(const std::string& aName);
  bool WriteRootNumber(const std::string& aName, uint32_t aNumber);

 private:
  explicit nsRandr(std::unique_ptr<nsXConnection> aConnection)
      : mConnection(std::move(aConnection)) {}
  bool InternAtoms();
  uint32_t Atom(const std::string& aName, bool aOnlyIfThere);
  nsXReply<xcb_randr_get_screen_resources_current_reply_t> ReadResources();
  bool ReadOnce(nsRandrPicture* aPicture);
  bool SetScreenSize(uint16_t aWidth, uint16_t aHeight);
  bool SetCrtc(const nsRandrCrtc& aCrtc, std::string* aReason);

  const std::unique_ptr<nsXConnection> mConnection;
  xcb_timestamp_t mConfigTime = 0;
  bool mHasProbed = false;
  uint32_t mEdidAtom = 0, mBacklightAtom = 0, mOldBacklightAtom = 0, mConnectorAtom = 0,
           mNonDesktopAtom = 0;
};
