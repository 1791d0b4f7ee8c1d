// Structures, constants and identifiers that the media interfaces of this folder pass around.
// Layouts, names and values are those of the platform that they come from, on 64 bits.
#pragma once

#include "nsXPCOMTypes.h"

class IBaseFilter;
class IFilterGraph;

// ---- Results, beside those of nsError.h

inline constexpr nsresult S_OK = NS_OK;
/// A success that says no, or fewer, or not yet.
inline constexpr nsresult S_FALSE{1};
inline constexpr nsresult E_NOTIMPL = NS_ERROR_NOT_IMPLEMENTED;
inline constexpr nsresult E_NOINTERFACE = NS_ERROR_NO_INTERFACE;
inline constexpr nsresult E_POINTER = NS_ERROR_NULL_POINTER;
inline constexpr nsresult E_FAIL = NS_ERROR_FAILURE;
inline constexpr nsresult E_OUTOFMEMORY = NS_ERROR_OUT_OF_MEMORY;
inline constexpr nsresult E_INVALIDARG = NS_ERROR_INVALID_ARG;
inline constexpr nsresult E_UNEXPECTED = NS_ERROR_UNEXPECTED;
inline constexpr nsresult CLASS_E_NOAGGREGATION = NS_ERROR_NO_AGGREGATION;
inline constexpr nsresult REGDB_E_CLASSNOTREG = NS_ERROR_FACTORY_NOT_REGISTERED;
inline constexpr nsresult MK_E_SYNTAX{0x800401E4};
inline constexpr nsresult MK_E_NOOBJECT{0x800401E5};
inline constexpr nsresult VFW_S_DUPLICATE_NAME{0x0004022D};
inline constexpr nsresult VFW_S_STATE_INTERMEDIATE{0x00040237};
inline constexpr nsresult VFW_E_ALREADY_CONNECTED{0x80040204};
inline constexpr nsresult VFW_E_NO_ACCEPTABLE_TYPES{0x80040207};
inline constexpr nsresult VFW_E_INVALID_DIRECTION{0x80040208};
inline constexpr nsresult VFW_E_NOT_CONNECTED{0x80040209};
inline constexpr nsresult VFW_E_NOT_FOUND{0x80040216};
inline constexpr nsresult VFW_E_NOT_STOPPED{0x80040224};
inline constexpr nsresult VFW_E_WRONG_STATE{0x80040227};
inline constexpr nsresult VFW_E_TYPE_NOT_ACCEPTED{0x8004022A};
inline constexpr nsresult VFW_E_DUPLICATE_NAME{0x8004022D};
inline constexpr nsresult VFW_E_TIMEOUT{0x8004022E};
inline constexpr nsresult VFW_E_NOT_IN_GRAPH{0x8004025F};
/// The result of a wait that ran out.
inline constexpr uint32_t WAIT_OBJECT_0 = 0;
inline constexpr uint32_t WAIT_TIMEOUT = 258;

// ---- Structures

/// What a pin carries. The format is the holder's, as is the reference in pUnk.
struct AM_MEDIA_TYPE {
  nsID majortype;
  nsID subtype;
  int32_t bFixedSizeSamples;
  int32_t bTemporalCompression;
  uint32_t lSampleSize;
  nsID formattype;
  nsISupports* pUnk;
  uint32_t cbFormat;
  uint8_t* pbFormat;
};
static_assert(sizeof(AM_MEDIA_TYPE) == 88);

enum PIN_DIRECTION : int32_t { PINDIR_INPUT = 0, PINDIR_OUTPUT = 1 };

struct PIN_INFO {
  IBaseFilter* pFilter;
  PIN_DIRECTION dir;
  char16_t achName[128];
};

struct FILTER_INFO {
  char16_t achName[128];
  IFilterGraph* pGraph;
};

enum FILTER_STATE : int32_t { State_Stopped = 0, State_Paused = 1, State_Running = 2 };

/// A value of changing type; only texts are used.
struct VARIANT {
  uint16_t vt;
  uint16_t wReserved1;
  uint16_t wReserved2;
  uint16_t wReserved3;
  union {
    char16_t* bstrVal;  ///< With VT_BSTR: the first character; its length in bytes stands in front.
    uint64_t words[2];
  };
};
static_assert(sizeof(VARIANT) == 24);
inline constexpr uint16_t VT_EMPTY = 0;
inline constexpr uint16_t VT_BSTR = 8;

struct PID_MAP {
  uint32_t ulPID;
  uint32_t MediaSampleContent;
};
inline constexpr uint32_t MEDIA_TRANSPORT_PACKET = 0;

struct BDANODE_DESCRIPTOR {
  uint32_t ulBdaNodeType;
  nsID guidFunction;
  nsID guidName;
};

/// The head of a section as ISectionList hands it out.
struct SECTION {
  uint8_t TableId;
  uint8_t Header[2];
  uint8_t SectionData[1];
};

// Pass through only.
struct BDA_TEMPLATE_CONNECTION;
struct BIND_OPTS;
struct DISPPARAMS;
struct EXCEPINFO;
struct MPEG2_FILTER;
struct MPEG_CONTEXT;
struct MPEG_PACKET_LIST;
struct MPEG_STREAM_BUFFER;
struct REGPINMEDIUM;

// ---- Classes, categories, media types

inline constexpr nsCID CLSID_FilterGraph = "e436ebb3-524f-11ce-9f53-0020af0ba770"_iid;
inline constexpr nsCID CLSID_DVBTuningSpace = "c6b14b32-76aa-4a86-a7ac-5c79aaf58da7"_iid;
inline constexpr nsCID CLSID_DVBTLocator = "9cd64701-bdf3-4d14-8e03-f12983d86664"_iid;
inline constexpr nsCID CLSID_DVBTNetworkProvider = "216c62df-6d7f-4e9a-8571-05f14edb766a"_iid;
inline constexpr nsCID CLSID_MPEG2Demultiplexer = "afb6c280-2c41-11d3-8a60-0000f81e0e4a"_iid;
inline constexpr nsCID CLSID_SampleGrabber = "c1f400a0-3f08-11d3-9f0b-006008039e37"_iid;
inline constexpr nsCID CLSID_NullRenderer = "c1f400a4-3f08-11d3-9f0b-006008039e37"_iid;
inline constexpr nsCID CLSID_SystemDeviceEnum = "62be5d10-60eb-11d0-bd3b-00a0c911ce86"_iid;

inline constexpr nsID KSCATEGORY_BDA_NETWORK_TUNER = "71985f48-1ca1-11d3-9cc8-00c04f7971e0"_iid;
inline constexpr nsID KSCATEGORY_BDA_RECEIVER_COMPONENT =
    "fd0a5af4-b41d-11d2-9c95-00c04f7971e0"_iid;
inline constexpr nsID KSCATEGORY_BDA_TRANSPORT_INFORMATION =
    "a2e3074f-6c3d-11d3-b653-00c04f79498e"_iid;

inline constexpr nsID KSNODE_BDA_RF_TUNER = "71985f4c-1ca1-11d3-9cc8-00c04f7971e0"_iid;
inline constexpr nsID KSNODE_BDA_QPSK_DEMODULATOR = "6390c905-27c1-4d67-bdb7-77c50d079300"_iid;
inline constexpr nsID KSNODE_BDA_COFDM_DEMODULATOR = "2dac6e05-edbe-4b9c-b387-1b6fad7d6495"_iid;
inline constexpr nsID KSNODE_BDA_QAM_DEMODULATOR = "71985f4d-1ca1-11d3-9cc8-00c04f7971e0"_iid;
inline constexpr nsID KSNODE_BDA_8VSB_DEMODULATOR = "71985f4f-1ca1-11d3-9cc8-00c04f7971e0"_iid;

inline constexpr nsID MEDIATYPE_Video = "73646976-0000-0010-8000-00aa00389b71"_iid;
inline constexpr nsID MEDIATYPE_Stream = "e436eb83-524f-11ce-9f53-0020af0ba770"_iid;
inline constexpr nsID MEDIASUBTYPE_MPEG2_VIDEO = "e06d8026-db46-11cf-b4d1-00805f6cbbea"_iid;
inline constexpr nsID MEDIASUBTYPE_MPEG2_TRANSPORT = "e06d8023-db46-11cf-b4d1-00805f6cbbea"_iid;
inline constexpr nsID KSDATAFORMAT_SUBTYPE_BDA_MPEG2_TRANSPORT =
    "f4aeb342-0329-4fdd-a8fd-4aff4926c978"_iid;
inline constexpr nsID MEDIATYPE_MPEG2_SECTIONS = "455f176c-4b06-47ce-9aef-8caef73df7b5"_iid;
inline constexpr nsID MEDIASUBTYPE_DVB_SI = "e9dd31a3-221d-4adb-8532-9af309c1a408"_iid;
inline constexpr nsID MEDIASUBTYPE_MPEG2DATA = "c892e55b-252d-42b5-a316-d997e7a5d995"_iid;
inline constexpr nsID KSDATAFORMAT_TYPE_BDA_ANTENNA = "71985f41-1ca1-11d3-9cc8-00c04f7971e0"_iid;
inline constexpr nsID KSDATAFORMAT_TYPE_BDA_IF_SIGNAL = "61be0b47-a5eb-499b-9a85-5b16c07f1258"_iid;
