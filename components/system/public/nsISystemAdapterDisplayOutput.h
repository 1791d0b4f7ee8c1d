// A display output as an adapter.
#pragma once

#include "nsISystemAdapter.h"

class nsIArray;
class nsISystemDisplayMode;
class nsISystemDisplayPosition;

/// Each output with a display has two of these. The live adapter stands in the manager's list and
/// tells what is in force; a change is made at once, and stored. The registered view, which the
/// live adapter hands out, reads and writes what is stored: a change there leaves the screen alone
/// until the next reset, which is the next session of the display server.
///
/// The system path is the output's name in the system ("\\.\DISPLAY1"), and the label names the
/// display for people.
///
/// What an adapter tells is read on first use and then kept: the live adapter's is renewed when the
/// displays change, a view's is not. Main thread, except that GetRegistered, power mode, position
/// and rotation may be used from any.
///
/// A reading that fails is NS_ERROR_FAILURE for the operation that caused it; from then on numbers
/// are 0, lists are empty, and position and mode are null. A change that the machine refuses is
/// NS_ERROR_FAILURE, with nothing changed.
class nsISystemAdapterDisplayOutput : public nsISystemAdapter {
 public:
  using Self = nsISystemAdapterDisplayOutput;
  using Base = nsISystemAdapter;
  static constexpr std::string_view kName = "nsISystemAdapterDisplayOutput";
  static constexpr nsIID kIID = "4c946c7a-de17-4260-ad0e-876169eb2069"_iid;

  /// The registered view, always the same one. A view has a further one of its own.
  virtual nsresult GetRegistered(nsISystemAdapterDisplayOutput** aRegistered) = 0;
  /// 1: on. Setting it does nothing, and succeeds: there is no link to the display for it.
  virtual nsresult GetPowerMode(uint32_t* aPowerMode) = 0;
  virtual nsresult SetPowerMode(uint32_t aPowerMode) = 0;
  /// A clone; null, and success, when it could not be read. NS_ERROR_INVALID_ARG for null. The
  /// object that was set is kept, and is not to be changed after that.
  virtual nsresult GetPosition(nsISystemDisplayPosition** aPosition) = 0;
  virtual nsresult SetPosition(nsISystemDisplayPosition* aPosition) = 0;
  /// Degrees by which the picture is turned counter-clockwise: 0, 90, 180 or 270. Anything else
  /// that is set turns it back to 0.
  virtual nsresult GetRotation(uint32_t* aRotation) = 0;
  virtual nsresult SetRotation(uint32_t aRotation) = 0;
  virtual nsresult GetBitsPerPixel(uint32_t* aBitsPerPixel) = 0;
  virtual nsresult SetBitsPerPixel(uint32_t aBitsPerPixel) = 0;
  /// 0, or what was last set; it means nothing.
  virtual nsresult GetPortType(uint32_t* aPortType) = 0;
  virtual nsresult SetPortType(uint32_t aPortType) = 0;
  /// Percent; 0 where the display does not tell. NS_ERROR_FAILURE above 100; a contrast that is
  /// what it was is always a success.
  virtual nsresult GetBrightness(uint16_t* aBrightness) = 0;
  virtual nsresult SetBrightness(uint16_t aBrightness) = 0;
  virtual nsresult GetContrast(uint16_t* aContrast) = 0;
  virtual nsresult SetContrast(uint16_t aContrast) = 0;
  /// Leaves the output as it is, and succeeds.
  virtual nsresult GetGammas(nsISupports** aGammas) = 0;
  /// The mode in force; null, and success, when it could not be read. What is set must equal one of
  /// the list: NS_ERROR_FAILURE.
  virtual nsresult GetDisplayMode(nsISystemDisplayMode** aDisplayMode) = 0;
  virtual nsresult SetDisplayMode(nsISystemDisplayMode* aDisplayMode) = 0;
  /// A new array of nsISystemDisplayMode.
  virtual nsresult GetDisplayModesList(nsIArray** aDisplayModesList) = 0;
  /// New arrays, to be freed with NS_Free. Where the machine tells which rotations it is capable
  /// of, 0 is not listed.
  virtual nsresult GetRotationsList(uint32_t* aCount, uint32_t** aRotations) = 0;
  virtual nsresult GetBitsPerPixelList(uint32_t* aCount, uint32_t** aBitsPerPixel) = 0;
  virtual nsresult GetPortTypesList(uint32_t* aCount, uint32_t** aPortTypes) = 0;

 protected:
  ~nsISystemAdapterDisplayOutput() = default;
};
