// Result codes: bit 31 is failure, then the module, then the code of that module.
#pragma once

#include <cstdint>
#include <string_view>

/// The result of every operation. Distinct from all integers, and not to be dropped by accident: where a
/// result is meant to be ignored, the call says so with (void).
enum class [[nodiscard]] nsresult : uint32_t {};

constexpr bool NS_FAILED(nsresult aRv) { return (static_cast<uint32_t>(aRv) & 0x80000000u) != 0; }
constexpr bool NS_SUCCEEDED(nsresult aRv) { return !NS_FAILED(aRv); }

// One table: the constants below and the names that logs and script exceptions show come from it.
// Where a value has two names, the first is the one shown.
#define NS_RESULT_CODES(X)                                  \
  X(NS_OK, 0)                                               \
  X(NS_ERROR_NOT_INITIALIZED, 0xC1F30001)                   \
  X(NS_ERROR_ALREADY_INITIALIZED, 0xC1F30002)               \
  X(NS_ERROR_FACTORY_EXISTS, 0xC1F30100)                    \
  X(NS_ERROR_FACTORY_NO_SIGNATURE_SUPPORT, 0xC1F30101)      \
  X(NS_ERROR_NOT_IMPLEMENTED, 0x80004001)                   \
  X(NS_ERROR_NO_INTERFACE, 0x80004002)                      \
  X(NS_NOINTERFACE, 0x80004002)                             \
  X(NS_ERROR_NULL_POINTER, 0x80004003)                      \
  X(NS_ERROR_INVALID_POINTER, 0x80004003)                   \
  X(NS_ERROR_ABORT, 0x80004004)                             \
  X(NS_ERROR_FAILURE, 0x80004005)                           \
  X(NS_ERROR_UNEXPECTED, 0x8000FFFF)                        \
  X(NS_ERROR_OUT_OF_MEMORY, 0x8007000E)                     \
  X(NS_ERROR_INVALID_ARG, 0x80070057)                       \
  X(NS_ERROR_ILLEGAL_VALUE, 0x80070057)                     \
  X(NS_ERROR_NO_AGGREGATION, 0x80040110)                    \
  X(NS_ERROR_NOT_AVAILABLE, 0x80040111)                     \
  X(NS_ERROR_FACTORY_NOT_REGISTERED, 0x80040154)            \
  X(NS_ERROR_FACTORY_REGISTER_AGAIN, 0x80040155)            \
  X(NS_ERROR_FACTORY_NOT_LOADED, 0x800401F8)                \
  X(NS_ERROR_CANNOT_CONVERT_DATA, 0x80460001)               \
  X(NS_ERROR_OBJECT_IS_IMMUTABLE, 0x80460002)               \
  X(NS_ERROR_LOSS_OF_SIGNIFICANT_DATA, 0x80460003)          \
  X(NS_ERROR_NOT_SAME_THREAD, 0x80460004)                   \
  X(NS_ERROR_ILLEGAL_DURING_SHUTDOWN, 0x8046001E)           \
  X(NS_SUCCESS_LOSS_OF_INSIGNIFICANT_DATA, 0x00460001)      \
  X(NS_BASE_STREAM_CLOSED, 0x80470002)                      \
  X(NS_BASE_STREAM_OSERROR, 0x80470003)                     \
  X(NS_BASE_STREAM_ILLEGAL_ARGS, 0x80470004)                \
  X(NS_BASE_STREAM_NO_CONVERTER, 0x80470005)                \
  X(NS_BASE_STREAM_BAD_CONVERSION, 0x80470006)              \
  X(NS_BASE_STREAM_WOULD_BLOCK, 0x80470007)                 \
  X(NS_BINDING_FAILED, 0x804B0001)                          \
  X(NS_BINDING_ABORTED, 0x804B0002)                         \
  X(NS_ERROR_MALFORMED_URI, 0x804B000A)                     \
  X(NS_ERROR_ALREADY_CONNECTED, 0x804B000B)                 \
  X(NS_ERROR_NOT_CONNECTED, 0x804B000C)                     \
  X(NS_ERROR_CONNECTION_REFUSED, 0x804B000D)                \
  X(NS_ERROR_NET_TIMEOUT, 0x804B000E)                       \
  X(NS_ERROR_IN_PROGRESS, 0x804B000F)                       \
  X(NS_ERROR_OFFLINE, 0x804B0010)                           \
  X(NS_ERROR_NO_CONTENT, 0x804B0011)                        \
  X(NS_ERROR_UNKNOWN_PROTOCOL, 0x804B0012)                  \
  X(NS_ERROR_PORT_ACCESS_NOT_ALLOWED, 0x804B0013)           \
  X(NS_ERROR_NET_RESET, 0x804B0014)                         \
  X(NS_ERROR_UNKNOWN_HOST, 0x804B001E)                      \
  X(NS_ERROR_UCONV_NOMAPPING, 0x00500023)                   \
  X(NS_ERROR_ILLEGAL_INPUT, 0x8050000E)                     \
  X(NS_ERROR_FILE_UNRECOGNIZED_PATH, 0x80520001)            \
  X(NS_ERROR_FILE_UNRESOLVABLE_SYMLINK, 0x80520002)         \
  X(NS_ERROR_FILE_EXECUTION_FAILED, 0x80520003)             \
  X(NS_ERROR_FILE_UNKNOWN_TYPE, 0x80520004)                 \
  X(NS_ERROR_FILE_DESTINATION_NOT_DIR, 0x80520005)          \
  X(NS_ERROR_FILE_TARGET_DOES_NOT_EXIST, 0x80520006)        \
  X(NS_ERROR_FILE_COPY_OR_MOVE_FAILED, 0x80520007)          \
  X(NS_ERROR_FILE_ALREADY_EXISTS, 0x80520008)               \
  X(NS_ERROR_FILE_INVALID_PATH, 0x80520009)                 \
  X(NS_ERROR_FILE_DISK_FULL, 0x8052000A)                    \
  X(NS_ERROR_FILE_CORRUPTED, 0x8052000B)                    \
  X(NS_ERROR_FILE_NOT_DIRECTORY, 0x8052000C)                \
  X(NS_ERROR_FILE_IS_DIRECTORY, 0x8052000D)                 \
  X(NS_ERROR_FILE_IS_LOCKED, 0x8052000E)                    \
  X(NS_ERROR_FILE_TOO_BIG, 0x8052000F)                      \
  X(NS_ERROR_FILE_NO_DEVICE_SPACE, 0x80520010)              \
  X(NS_ERROR_FILE_NAME_TOO_LONG, 0x80520011)                \
  X(NS_ERROR_FILE_NOT_FOUND, 0x80520012)                    \
  X(NS_ERROR_FILE_READ_ONLY, 0x80520013)                    \
  X(NS_ERROR_FILE_DIR_NOT_EMPTY, 0x80520014)                \
  X(NS_ERROR_FILE_ACCESS_DENIED, 0x80520015)                \
  X(NS_SUCCESS_FILE_DIRECTORY_EMPTY, 0x00520001)            \
  X(NS_SUCCESS_AGGREGATE_RESULT, 0x00520002)                \
  X(NS_ERROR_XPC_NOT_ENOUGH_ARGS, 0x80570001)               \
  X(NS_ERROR_XPC_BAD_CONVERT_JS, 0x80570009)                \
  X(NS_ERROR_XPC_BAD_CONVERT_NATIVE, 0x8057000A)            \
  X(NS_ERROR_XPC_BAD_CONVERT_JS_NULL_REF, 0x8057000B)

#define NS_RESULT_CONSTANT(aName, aValue) inline constexpr nsresult aName{aValue};
NS_RESULT_CODES(NS_RESULT_CONSTANT)
#undef NS_RESULT_CONSTANT

/// "NS_ERROR_NOT_AVAILABLE" and so on; empty for a code that has no name here.
std::string_view NS_ResultName(nsresult aRv);
