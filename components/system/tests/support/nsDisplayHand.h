// Somebody else at a display server: plugs in, turns on, describes.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <xcb/randr.h>

#include <memory>
#include <string>
#include <vector>

/// A client of the server that DISPLAY names at that time. Outputs are told by their numbers.
class nsDisplayHand {
 public:
  nsDisplayHand() {
    EXPECT_EQ(xcb_connection_has_error(mServer), 0);
    mRoot = xcb_setup_roots_iterator(xcb_get_setup(mServer)).data->root;
  }
  ~nsDisplayHand() { xcb_disconnect(mServer); }
  nsDisplayHand(const nsDisplayHand&) = delete;
  nsDisplayHand& operator=(const nsDisplayHand&) = delete;

  /// What the display on that output says of itself.
  void Describe(size_t aOutput, const std::string& aBytes) {
    const xcb_atom_t atom = Atom("EDID");
    Do(xcb_randr_change_output_property_checked(
        mServer, Output(aOutput), atom, XCB_ATOM_INTEGER, 8, XCB_PROP_MODE_REPLACE,
        static_cast<uint32_t>(aBytes.size()), aBytes.data()));
  }
  /// A property of 32 bits with a range, as drivers have them.
  void PutProperty(size_t aOutput, const std::string& aName, int32_t aValue, int32_t aLowest,
                   int32_t aHighest) {
    const int32_t range[] = {aLowest, aHighest};
    Do(xcb_randr_configure_output_property_checked(mServer, Output(aOutput), Atom(aName), false,
                                                   true, 2, range));
    Do(xcb_randr_change_output_property_checked(mServer, Output(aOutput), Atom(aName),
                                                XCB_ATOM_INTEGER, 32, XCB_PROP_MODE_REPLACE, 1,
                                                &aValue));
  }
  int32_t Property(size_t aOutput, const std::string& aName) {
    const auto reply = Take(xcb_randr_get_output_property_reply(
        mServer,
        xcb_randr_get_output_property(mServer, Output(aOutput), Atom(aName), XCB_ATOM_ANY, 0, 1,
                                      false, false),
        nullptr));
    return reply && reply->num_items == 1
               ? *reinterpret_cast<const int32_t*>(xcb_randr_get_output_property_data(reply.get()))
               : -1;
  }
  /// A mode of 60 Hz, which the output has from then on; its number.
  uint32_t AddMode(size_t aOutput, uint16_t aWidth, uint16_t aHeight) {
    xcb_randr_mode_info_t mode{};
    mode.width = aWidth;
    mode.height = aHeight;
    mode.htotal = static_cast<uint16_t>(aWidth + 100);
    mode.hsync_start = static_cast<uint16_t>(aWidth + 20);
    mode.hsync_end = static_cast<uint16_t>(aWidth + 60);
    mode.vtotal = static_cast<uint16_t>(aHeight + 30);
    mode.vsync_start = static_cast<uint16_t>(aHeight + 3);
    mode.vsync_end = static_cast<uint16_t>(aHeight + 6);
    mode.dot_clock = 60u * mode.htotal * mode.vtotal;
    const std::string name = "hand-" + std::to_string(++mModes);
    mode.name_len = static_cast<uint16_t>(name.size());
    const auto made = Take(xcb_randr_create_mode_reply(
        mServer,
        xcb_randr_create_mode(mServer, mRoot, mode, static_cast<uint32_t>(name.size()),
                              name.c_str()),
        nullptr));
    if (!made) return 0;
    Do(xcb_randr_add_output_mode_checked(mServer, Output(aOutput), made->mode));
    return made->mode;
  }
  void RemoveMode(size_t aOutput, uint32_t aMode) {
    Do(xcb_randr_delete_output_mode_checked(mServer, Output(aOutput), aMode));
    Do(xcb_randr_destroy_mode_checked(mServer, aMode));
  }
  /// Shows that mode there; off with mode 0. Outputs of the dummy driver are connected from the
  /// first time on.
  void Show(size_t aOutput, uint32_t aMode, int16_t aX = 0, int16_t aY = 0) {
    const xcb_randr_output_t output = Output(aOutput);
    const auto info = Take(xcb_randr_get_output_info_reply(
        mServer, xcb_randr_get_output_info(mServer, output, XCB_CURRENT_TIME), nullptr));
    // The driver has one crtc for each.
    const xcb_randr_crtc_t crtc =
        info->crtc ? info->crtc : *xcb_randr_get_output_info_crtcs(info.get());
    const auto reply = Take(xcb_randr_set_crtc_config_reply(
        mServer,
        xcb_randr_set_crtc_config(mServer, crtc, XCB_CURRENT_TIME, XCB_CURRENT_TIME, aX, aY, aMode,
                                  XCB_RANDR_ROTATION_ROTATE_0, aMode ? 1 : 0, &output),
        nullptr));
    EXPECT_TRUE(reply && reply->status == XCB_RANDR_SET_CONFIG_SUCCESS);
    // The server looks which ones are connected.
    (void)Take(xcb_randr_get_screen_resources_reply(
        mServer, xcb_randr_get_screen_resources(mServer, mRoot), nullptr));
  }
  void SetScreenSize(uint16_t aWidth, uint16_t aHeight) {
    Do(xcb_randr_set_screen_size_checked(mServer, mRoot, aWidth, aHeight, aWidth / 4u,
                                         aHeight / 4u));
  }
  void SetPrimary(size_t aOutput) {
    Do(xcb_randr_set_output_primary_checked(mServer, mRoot, Output(aOutput)));
  }

 private:
  struct Free {
    void operator()(void* aMemory) const { free(aMemory); }
  };
  template <class Reply>
  static std::unique_ptr<Reply, Free> Take(Reply* aReply) {
    return std::unique_ptr<Reply, Free>(aReply);
  }
  void Do(xcb_void_cookie_t aRequest) { EXPECT_FALSE(Take(xcb_request_check(mServer, aRequest))); }
  xcb_atom_t Atom(const std::string& aName) {
    return Take(xcb_intern_atom_reply(
                    mServer,
                    xcb_intern_atom(mServer, false, static_cast<uint16_t>(aName.size()),
                                    aName.c_str()),
                    nullptr))
        ->atom;
  }
  std::unique_ptr<xcb_randr_get_screen_resources_current_reply_t, Free> Resources() {
    return Take(xcb_randr_get_screen_resources_current_reply(
        mServer, xcb_randr_get_screen_resources_current(mServer, mRoot), nullptr));
  }
  xcb_randr_output_t Output(size_t aOutput) {
    return xcb_randr_get_screen_resources_current_outputs(Resources().get())[aOutput];
  }

  xcb_connection_t* const mServer = xcb_connect(nullptr, nullptr);
  xcb_window_t mRoot = 0;
  int mModes = 0;
};
