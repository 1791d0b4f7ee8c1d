// The addon of script.py: one class, with an attribute that is a number, one that is a text, and a
// listener.
#include <node_api.h>

#include <string>

namespace {

struct Thing {
  uint32_t mNumber = 7;
  std::u16string mText;
  napi_ref mListener = nullptr;
};

/// The object behind `this`, and the first argument.
Thing* Self(napi_env env, napi_callback_info aInfo, napi_value* aArgument = nullptr) {
  size_t count = aArgument ? 1 : 0;
  napi_value self;
  void* thing = nullptr;
  napi_get_cb_info(env, aInfo, &count, aArgument, &self, nullptr);
  napi_unwrap(env, self, &thing);
  return static_cast<Thing*>(thing);
}

napi_value Construct(napi_env env, napi_callback_info aInfo) {
  napi_value self;
  napi_get_cb_info(env, aInfo, nullptr, nullptr, &self, nullptr);
  const auto destroy = [](napi_env, void* aThing, void*) { delete static_cast<Thing*>(aThing); };
  napi_wrap(env, self, new Thing, destroy, nullptr, nullptr);
  return self;
}

napi_value GetNumber(napi_env env, napi_callback_info aInfo) {
  napi_value result;
  napi_create_uint32(env, Self(env, aInfo)->mNumber, &result);
  return result;
}

napi_value GetText(napi_env env, napi_callback_info aInfo) {
  const Thing* const thing = Self(env, aInfo);
  napi_value result;
  napi_create_string_utf16(env, thing->mText.data(), thing->mText.size(), &result);
  return result;
}

napi_value SetText(napi_env env, napi_callback_info aInfo) {
  napi_value text;
  Thing* const thing = Self(env, aInfo, &text);
  size_t length = 0;
  napi_get_value_string_utf16(env, text, nullptr, 0, &length);
  thing->mText.resize(length);
  napi_get_value_string_utf16(env, text, thing->mText.data(), length + 1, nullptr);
  return nullptr;
}

napi_value Listen(napi_env env, napi_callback_info aInfo) {
  napi_value listener;
  Thing* const thing = Self(env, aInfo, &listener);
  napi_create_reference(env, listener, 1, &thing->mListener);
  return nullptr;
}

// With the arguments of an observer: no subject, a topic, no data.
napi_value Notify(napi_env env, napi_callback_info aInfo) {
  napi_value listener, receiver, arguments[3], result;
  napi_get_reference_value(env, Self(env, aInfo)->mListener, &listener);
  napi_get_undefined(env, &receiver);
  napi_get_null(env, &arguments[0]);
  napi_create_string_utf8(env, "beside", NAPI_AUTO_LENGTH, &arguments[1]);
  napi_get_null(env, &arguments[2]);
  napi_call_function(env, receiver, listener, 3, arguments, &result);
  return nullptr;
}

napi_value Init(napi_env env, napi_value aExports) {
  const napi_property_descriptor members[] = {
      {"number", nullptr, nullptr, GetNumber, nullptr, nullptr, napi_default, nullptr},
      {"text", nullptr, nullptr, GetText, SetText, nullptr, napi_default, nullptr},
      {"listen", nullptr, Listen, nullptr, nullptr, nullptr, napi_default, nullptr},
      {"notify", nullptr, Notify, nullptr, nullptr, nullptr, napi_default, nullptr}};
  napi_value thing;
  napi_define_class(env, "Thing", NAPI_AUTO_LENGTH, Construct, nullptr, 4, members, &thing);
  napi_set_named_property(env, aExports, "Thing", thing);
  return aExports;
}

}  // namespace

NAPI_MODULE(addon, Init)
