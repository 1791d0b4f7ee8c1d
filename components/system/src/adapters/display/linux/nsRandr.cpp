#include "nsRandr.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <span>

#include "nsPipeSignal.h"

namespace {

constexpr uint32_t kMajor = 1, kMinor = 3;  // the oldest version with all that is asked here
constexpr uint32_t kEdidWords = 128;        // four blocks
constexpr size_t kEdidBlock = 128;          // bytes
// Borne by the root window of a server that has been had probe its outputs.
constexpr char kProbed[] = "_VOREL_DISPLAYS_PROBED";
constexpr double kMillimetresPerInch = 25.4, kUsualDpi = 96;

using ModeInfo = xcb_randr_mode_info_t;

uint32_t FrequencyOf(const ModeInfo& aMode) {
  double lines = aMode.vtotal;
  if (aMode.mode_flags & XCB_RANDR_MODE_FLAG_DOUBLE_SCAN) lines *= 2;
  if (aMode.mode_flags & XCB_RANDR_MODE_FLAG_INTERLACE) lines /= 2;
  const double total = aMode.htotal * lines;
  const double frequency = total > 0 ? aMode.dot_clock / total : 0;
  return static_cast<uint32_t>(std::lround(std::min(frequency, 10000.0)));
}

nsRandrMode ModeFrom(const ModeInfo& aMode) {
  return {aMode.id, aMode.width, aMode.height, FrequencyOf(aMode),
          (aMode.mode_flags & XCB_RANDR_MODE_FLAG_INTERLACE) != 0};
}

bool IsOfAKind(const nsRandrMode& aA, const nsRandrMode& aB) {
  return aA.mWidth == aB.mWidth && aA.mHeight == aB.mHeight && aA.mFrequency == aB.mFrequency &&
         aA.mInterlaced == aB.mInterlaced;
}

bool IsTurned(uint16_t aRotation) {
  return aRotation & (XCB_RANDR_ROTATION_ROTATE_90 | XCB_RANDR_ROTATION_ROTATE_270);
}

const char* StatusName(uint8_t aStatus) {
  switch (aStatus) {
    case XCB_RANDR_SET_CONFIG_INVALID_CONFIG_TIME:
      return "the outputs have changed meanwhile";
    case XCB_RANDR_SET_CONFIG_INVALID_TIME:
      return "it is out of date";
    default:
      return "the display server refuses it";
  }
}

struct Size {
  int32_t mWidth = 0;
  int32_t mHeight = 0;
};

}  // namespace

const nsRandrCrtc* nsRandrPicture::FindCrtc(uint32_t aId) const {
  const auto found = std::ranges::find(mCrtcs, aId, &nsRandrCrtc::mId);
  return found == mCrtcs.end() ? nullptr : &*found;
}

const nsRandrMode* nsRandrPicture::ModeOf(const nsRandrCrtc& aCrtc) const {
  const auto found = mModes.find(aCrtc.mMode);
  return found == mModes.end() ? nullptr : &found->second;
}

std::unique_ptr<nsRandr> nsRandr::Open() {
  auto connection = nsXConnection::Open();
  if (!connection) return nullptr;
  std::unique_ptr<nsRandr> randr(new nsRandr(std::move(connection)));
  xcb_connection_t* const x = randr->mConnection->get();
  const auto extension =
      randr->mConnection->Wait<xcb_query_extension_reply_t>(xcb_query_extension(x, 5, "RANDR"));
  if (!extension || !extension->present) return nullptr;
  const auto version = randr->mConnection->Wait<xcb_randr_query_version_reply_t>(
      xcb_randr_query_version(x, XCB_RANDR_MAJOR_VERSION, XCB_RANDR_MINOR_VERSION));
  if (!version || version->major_version != kMajor || version->minor_version < kMinor ||
      !randr->InternAtoms())
    return nullptr;
  return randr;
}

bool nsRandr::InternAtoms() {
  struct {
    const char* mName;
    uint32_t* mAtom;
    xcb_intern_atom_cookie_t mCookie;
  } atoms[] = {{"EDID", &mEdidAtom, {}},
               {"Backlight", &mBacklightAtom, {}},
               {"BACKLIGHT", &mOldBacklightAtom, {}},
               {"CONNECTOR_ID", &mConnectorAtom, {}},
               {"non-desktop", &mNonDesktopAtom, {}}};
  for (auto& atom : atoms)
    atom.mCookie =
        xcb_intern_atom(mConnection->get(), false,
                        static_cast<uint16_t>(std::string_view(atom.mName).size()), atom.mName);
  for (auto& atom : atoms) {
    const auto reply = mConnection->Wait<xcb_intern_atom_reply_t>(atom.mCookie);
    if (!reply) return false;
    *atom.mAtom = reply->atom;
  }
  return true;
}

nsXReply<xcb_randr_get_screen_resources_current_reply_t> nsRandr::ReadResources() {
  auto resources = mConnection->Wait<xcb_randr_get_screen_resources_current_reply_t>(
      xcb_randr_get_screen_resources_current(mConnection->get(), mConnection->Screen().root));
  if (resources) mConfigTime = resources->config_timestamp;
  return resources;
}

std::optional<nsRandrStamp> nsRandrStamp::Read(nsXConnection& aConnection) {
  const auto resources = aConnection.Wait<xcb_randr_get_screen_resources_current_reply_t>(
      xcb_randr_get_screen_resources_current(aConnection.get(), aConnection.Screen().root));
  if (!resources) return std::nullopt;
  return nsRandrStamp{resources->timestamp, resources->config_timestamp};
}

bool nsRandr::Read(nsRandrPicture* aPicture) {
  if (!ReadOnce(aPicture)) return false;
  const auto lacksDescription = [](const nsRandrOutput& aOutput) {
    return aOutput.mIsConnected && aOutput.mDescription.empty();
  };
  if (mHasProbed || std::ranges::none_of(aPicture->mOutputs, lacksDescription)) return true;
  mHasProbed = true;
  if (ReadRootNumber(kProbed)) return true;
  (void)WriteRootNumber(kProbed, 1);
  (void)mConnection->Wait<xcb_randr_get_screen_resources_reply_t>(
      xcb_randr_get_screen_resources(mConnection->get(), mConnection->Screen().root));
  return ReadOnce(aPicture);
}

// Requests of a kind are all sent before the first reply is waited for: two round trips for a
// machine of any number of outputs.
bool nsRandr::ReadOnce(nsRandrPicture* aPicture) {
  const nsPipeSignalHeld held;
  xcb_connection_t* const x = mConnection->get();
  const xcb_screen_t& screen = mConnection->Screen();
  const auto primaryCookie = xcb_randr_get_output_primary(x, screen.root);
  const auto geometryCookie = xcb_get_geometry(x, screen.root);
  const auto resources = ReadResources();
  const auto primary = mConnection->Wait<xcb_randr_get_output_primary_reply_t>(primaryCookie);
  const auto geometry = mConnection->Wait<xcb_get_geometry_reply_t>(geometryCookie);
  if (!resources || !primary || !geometry) return false;

  nsRandrPicture picture;
  picture.mStamp = {resources->timestamp, resources->config_timestamp};
  picture.mWidth = geometry->width;
  picture.mHeight = geometry->height;
  picture.mBitsPerPixel = screen.root_depth;
  auto formats = xcb_setup_pixmap_formats_iterator(xcb_get_setup(x));
  for (; formats.rem; xcb_format_next(&formats))
    if (formats.data->depth == screen.root_depth)
      picture.mBitsPerPixel = formats.data->bits_per_pixel;
  const std::span modes(xcb_randr_get_screen_resources_current_modes(resources.get()),
                        resources->num_modes);
  for (const ModeInfo& mode : modes) picture.mModes.emplace(mode.id, ModeFrom(mode));

  const std::span outputs(xcb_randr_get_screen_resources_current_outputs(resources.get()),
                          resources->num_outputs);
  const std::span crtcs(xcb_randr_get_screen_resources_current_crtcs(resources.get()),
                        resources->num_crtcs);
  struct Cookies {
    xcb_randr_get_output_info_cookie_t mInfo;
    xcb_randr_get_output_property_cookie_t mEdid, mBacklight, mOldBacklight, mConnector,
        mNonDesktop;
    xcb_randr_query_output_property_cookie_t mRange, mOldRange;
  };
  const auto property = [&](xcb_randr_output_t aOutput, uint32_t aAtom, uint32_t aWords) {
    return xcb_randr_get_output_property(x, aOutput, aAtom, XCB_ATOM_ANY, 0, aWords, false, false);
  };
  std::vector<Cookies> cookies;
  for (const xcb_randr_output_t output : outputs)
    cookies.push_back({xcb_randr_get_output_info(x, output, mConfigTime),
                       property(output, mEdidAtom, kEdidWords), property(output, mBacklightAtom, 1),
                       property(output, mOldBacklightAtom, 1), property(output, mConnectorAtom, 1),
                       property(output, mNonDesktopAtom, 1),
                       xcb_randr_query_output_property(x, output, mBacklightAtom),
                       xcb_randr_query_output_property(x, output, mOldBacklightAtom)});
  std::vector<xcb_randr_get_crtc_info_cookie_t> crtcCookies;
  for (const xcb_randr_crtc_t crtc : crtcs)
    crtcCookies.push_back(xcb_randr_get_crtc_info(x, crtc, mConfigTime));

  for (size_t i = 0; i < outputs.size(); ++i) {
    // Each reply is taken, also where it is not wanted: what is left would lie in memory for good.
    const auto info = mConnection->Wait<xcb_randr_get_output_info_reply_t>(cookies[i].mInfo);
    using PropertyReply = xcb_randr_get_output_property_reply_t;
    const auto edid = mConnection->Wait<PropertyReply>(cookies[i].mEdid);
    const auto backlight = mConnection->Wait<PropertyReply>(cookies[i].mBacklight);
    const auto oldBacklight = mConnection->Wait<PropertyReply>(cookies[i].mOldBacklight);
    const auto connector = mConnection->Wait<PropertyReply>(cookies[i].mConnector);
    const auto nonDesktop = mConnection->Wait<PropertyReply>(cookies[i].mNonDesktop);
    using RangeReply = xcb_randr_query_output_property_reply_t;
    const auto range = mConnection->Wait<RangeReply>(cookies[i].mRange);
    const auto oldRange = mConnection->Wait<RangeReply>(cookies[i].mOldRange);
    const auto number = [](const nsXReply<PropertyReply>& aReply) -> std::optional<int32_t> {
      if (!aReply || aReply->format != 32 || aReply->num_items < 1) return std::nullopt;
      int32_t value;
      std::copy_n(xcb_randr_get_output_property_data(aReply.get()), sizeof value,
                  reinterpret_cast<uint8_t*>(&value));
      return value;
    };
    if (!info) {
      if (!mConnection->Works()) return false;
      continue;  // an output that has gone meanwhile
    }
    nsRandrOutput output;
    output.mId = outputs[i];
    output.mName.assign(reinterpret_cast<const char*>(xcb_randr_get_output_info_name(info.get())),
                        info->name_len);
    // Those that are worn are no part of the desktop.
    output.mIsConnected =
        info->connection == XCB_RANDR_CONNECTION_CONNECTED && number(nonDesktop).value_or(0) == 0;
    output.mIsPrimary = outputs[i] == primary->output;
    output.mCrtc = info->crtc;
    output.mConnectorId = static_cast<uint32_t>(number(connector).value_or(0));
    if (edid && edid->format == 8) {
      const std::span bytes(xcb_randr_get_output_property_data(edid.get()), edid->num_items);
      output.mEdid = NS_ParseEdid(bytes);
      if (!output.mEdid.mIdentity.empty())
        output.mDescription.assign(bytes.begin(), bytes.begin() + kEdidBlock);
    }
    const auto takeBacklight = [&](uint32_t aAtom, const nsXReply<PropertyReply>& aValue,
                                   const nsXReply<RangeReply>& aRange) {
      const auto value = number(aValue);
      if (!value || !aRange || !aRange->range || aRange->length != 2 || output.mBacklight) return;
      const int32_t* const ends = xcb_randr_query_output_property_valid_values(aRange.get());
      if (ends[0] >= ends[1]) return;
      output.mBacklight = aAtom;
      output.mBacklightMin = ends[0];
      output.mBacklightMax = ends[1];
      output.mBacklightValue = std::clamp(*value, ends[0], ends[1]);
    };
    takeBacklight(mBacklightAtom, backlight, range);
    takeBacklight(mOldBacklightAtom, oldBacklight, oldRange);
    const std::span ids(xcb_randr_get_output_info_modes(info.get()), info->num_modes);
    for (const xcb_randr_mode_t id : ids) {
      const auto found = picture.mModes.find(id);
      if (found == picture.mModes.end()) continue;
      // The preferred ones come first in the server's list.
      if (std::ranges::none_of(output.mModes, [&](const nsRandrMode& aMode) {
            return IsOfAKind(aMode, found->second);
          }))
        output.mModes.push_back(found->second);
    }
    picture.mOutputs.push_back(std::move(output));
  }

  for (size_t i = 0; i < crtcs.size(); ++i) {
    const auto info = mConnection->Wait<xcb_randr_get_crtc_info_reply_t>(crtcCookies[i]);
    if (!info) {
      if (!mConnection->Works()) return false;
      continue;
    }
    const std::span shown(xcb_randr_get_crtc_info_outputs(info.get()), info->num_outputs);
    picture.mCrtcs.push_back({crtcs[i],
                              info->x,
                              info->y,
                              info->mode,
                              info->rotation,
                              info->rotations,
                              {shown.begin(), shown.end()}});
  }
  // The mode that is in force stands for those of its kind.
  for (nsRandrOutput& output : picture.mOutputs) {
    const nsRandrCrtc* const crtc = picture.FindCrtc(output.mCrtc);
    const nsRandrMode* const current = crtc ? picture.ModeOf(*crtc) : nullptr;
    if (!current) output.mCrtc = 0;  // turned off between the two questions
    for (nsRandrMode& mode : output.mModes)
      if (current && IsOfAKind(mode, *current)) mode = *current;
  }
  *aPicture = std::move(picture);
  return true;
}

// ---- Changes

bool nsRandr::SetScreenSize(uint16_t aWidth, uint16_t aHeight) {
  // As many dots an inch as before.
  const xcb_screen_t& screen = mConnection->Screen();
  const auto millimetres = [](double aPixels, double aOf, double aMillimetres) {
    const double dpi =
        aMillimetres > 0 && aOf > 0 ? aOf * kMillimetresPerInch / aMillimetres : kUsualDpi;
    return static_cast<uint32_t>(std::lround(aPixels * kMillimetresPerInch / dpi));
  };
  return mConnection->Check(xcb_randr_set_screen_size_checked(
      mConnection->get(), screen.root, aWidth, aHeight,
      millimetres(aWidth, screen.width_in_pixels, screen.width_in_millimeters),
      millimetres(aHeight, screen.height_in_pixels, screen.height_in_millimeters)));
}

bool nsRandr::SetCrtc(const nsRandrCrtc& aCrtc, std::string* aReason) {
  xcb_connection_t* const x = mConnection->get();
  // A window onto a larger picture, which would move by itself.
  const auto panning =
      mConnection->Wait<xcb_randr_get_panning_reply_t>(xcb_randr_get_panning(x, aCrtc.mId));
  if (panning && (panning->width || panning->height))
    (void)mConnection->Wait<xcb_randr_set_panning_reply_t>(
        xcb_randr_set_panning(x, aCrtc.mId, XCB_CURRENT_TIME, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
  const auto reply = mConnection->Wait<xcb_randr_set_crtc_config_reply_t>(xcb_randr_set_crtc_config(
      x, aCrtc.mId, XCB_CURRENT_TIME, mConfigTime, static_cast<int16_t>(aCrtc.mX),
      static_cast<int16_t>(aCrtc.mY), aCrtc.mMode, aCrtc.mRotation,
      static_cast<uint32_t>(aCrtc.mOutputs.size()), aCrtc.mOutputs.data()));
  if (reply && reply->status == XCB_RANDR_SET_CONFIG_SUCCESS) return true;
  *aReason = reply ? StatusName(reply->status) : StatusName(XCB_RANDR_SET_CONFIG_FAILED);
  return false;
}

bool nsRandr::Arrange(const nsRandrPicture& aPicture, std::vector<nsRandrCrtc> aWanted,
                      std::string* aReason) {
  const nsPipeSignalHeld held;
  xcb_connection_t* const x = mConnection->get();
  const uint32_t root = mConnection->Screen().root;

  const auto sizeOf = [&](const nsRandrCrtc& aCrtc) {
    const nsRandrMode* const mode = aPicture.ModeOf(aCrtc);
    Size size;
    if (mode) size = {static_cast<int32_t>(mode->mWidth), static_cast<int32_t>(mode->mHeight)};
    if (IsTurned(aCrtc.mRotation)) std::swap(size.mWidth, size.mHeight);
    return size;
  };
  int64_t left = 0, top = 0;
  for (const nsRandrCrtc& crtc : aWanted) {
    if (!crtc.mMode) continue;
    left = std::min<int64_t>(left, crtc.mX);
    top = std::min<int64_t>(top, crtc.mY);
  }
  int64_t width = 1, height = 1;
  for (const nsRandrCrtc& crtc : aWanted) {
    if (!crtc.mMode) continue;
    const Size size = sizeOf(crtc);
    width = std::max(width, crtc.mX - left + size.mWidth);
    height = std::max(height, crtc.mY - top + size.mHeight);
  }
  const auto range = mConnection->Wait<xcb_randr_get_screen_size_range_reply_t>(
      xcb_randr_get_screen_size_range(x, root));
  if (!range) {
    *aReason = "the display server does not answer";
    return false;
  }
  width = std::max<int64_t>(width, range->min_width);
  height = std::max<int64_t>(height, range->min_height);
  if (width > range->max_width || height > range->max_height ||
      std::max(width, height) > std::numeric_limits<int16_t>::max()) {
    *aReason = "the screen would be " + std::to_string(width) + "x" + std::to_string(height) +
               ", and can be " + std::to_string(range->max_width) + "x" +
               std::to_string(range->max_height);
    return false;
  }
  for (nsRandrCrtc& crtc : aWanted) {
    if (!crtc.mMode) continue;
    if (!(crtc.mRotation & crtc.mRotations)) {
      *aReason = "the output does not turn that way";
      return false;
    }
    crtc.mX -= static_cast<int32_t>(left);
    crtc.mY -= static_cast<int32_t>(top);
  }

  xcb_grab_server(x);
  // The time of the last change counts in what follows.
  const auto resources = ReadResources();
  const auto geometry = mConnection->Wait<xcb_get_geometry_reply_t>(xcb_get_geometry(x, root));
  bool done = resources && geometry;
  if (!done) *aReason = "the display server does not answer";
  if (done) {
    const auto newWidth = static_cast<uint16_t>(width), newHeight = static_cast<uint16_t>(height);
    const uint16_t wide = std::max(geometry->width, newWidth),
                   high = std::max(geometry->height, newHeight);
    const auto resize = [&](uint16_t aFromWidth, uint16_t aFromHeight, uint16_t aToWidth,
                            uint16_t aToHeight) {
      if (aFromWidth == aToWidth && aFromHeight == aToHeight) return true;
      if (SetScreenSize(aToWidth, aToHeight)) return true;
      *aReason =
          "the screen can't be " + std::to_string(aToWidth) + "x" + std::to_string(aToHeight);
      return false;
    };
    done = resize(geometry->width, geometry->height, wide, high);
    size_t set = 0;
    for (; done && set < aWanted.size(); ++set) {
      const nsRandrCrtc* const former = aPicture.FindCrtc(aWanted[set].mId);
      if (former && *former == aWanted[set]) continue;
      done = SetCrtc(aWanted[set], aReason);
    }
    if (done) done = resize(wide, high, newWidth, newHeight);
    if (!done && Works()) {
      std::string ignored;
      for (size_t i = 0; i < set; ++i)
        if (const nsRandrCrtc* const former = aPicture.FindCrtc(aWanted[i].mId))
          (void)SetCrtc(*former, &ignored);
      (void)SetScreenSize(geometry->width, geometry->height);
    }
  }
  xcb_ungrab_server(x);
  (void)xcb_flush(x);
  return done;
}

bool nsRandr::SetBacklight(const nsRandrOutput& aOutput, int32_t aValue) {
  const nsPipeSignalHeld held;
  return mConnection->Check(xcb_randr_change_output_property_checked(
      mConnection->get(), aOutput.mId, aOutput.mBacklight, XCB_ATOM_INTEGER, 32,
      XCB_PROP_MODE_REPLACE, 1, &aValue));
}

// ---- The root window

uint32_t nsRandr::Atom(const std::string& aName, bool aOnlyIfThere) {
  const auto reply = mConnection->Wait<xcb_intern_atom_reply_t>(xcb_intern_atom(
      mConnection->get(), aOnlyIfThere, static_cast<uint16_t>(aName.size()), aName.c_str()));
  return reply ? reply->atom : 0;
}

std::optional<uint32_t> nsRandr::ReadRootNumber(const std::string& aName) {
  const uint32_t atom = Atom(aName, true);
  if (!atom) return std::nullopt;
  const auto reply = mConnection->Wait<xcb_get_property_reply_t>(xcb_get_property(
      mConnection->get(), false, mConnection->Screen().root, atom, XCB_ATOM_CARDINAL, 0, 1));
  if (!reply || reply->format != 32 || reply->value_len < 1) return std::nullopt;
  return *static_cast<const uint32_t*>(xcb_get_property_value(reply.get()));
}

bool nsRandr::WriteRootNumber(const std::string& aName, uint32_t aNumber) {
  const uint32_t atom = Atom(aName, false);
  return atom && mConnection->Check(xcb_change_property_checked(
                     mConnection->get(), XCB_PROP_MODE_REPLACE, mConnection->Screen().root, atom,
                     XCB_ATOM_CARDINAL, 32, 1, &aNumber));
}
