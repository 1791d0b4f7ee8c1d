// Services and their audio channels as values.
#pragma once

#include "nsClassInfoOfAll.h"
#include "nsIBDAScanResultDigitalTvService.h"
#include "nsIDigitalTvAudioChannel.h"
#include "nsIMutableArray.h"
#include "nsModuleClass.h"
#include "nsString.h"

// One attribute that is stored as it comes.
#define VOREL_NUMBER_ATTRIBUTE(aType, aName)    \
  nsresult Get##aName(aType* aValue) override { \
    *aValue = m##aName;                         \
    return NS_OK;                               \
  }                                             \
  nsresult Set##aName(aType aValue) override {  \
    m##aName = aValue;                          \
    return NS_OK;                               \
  }                                             \
                                                \
 private:                                       \
  aType m##aName = 0;                           \
                                                \
 public:
#define VOREL_TEXT_ATTRIBUTE(aName)                        \
  nsresult Get##aName(nsACString& aValue) override {       \
    NS_Assign(aValue, m##aName.view());                    \
    return NS_OK;                                          \
  }                                                        \
  nsresult Set##aName(const nsACString& aValue) override { \
    m##aName = aValue;                                     \
    return NS_OK;                                          \
  }                                                        \
                                                           \
 private:                                                  \
  nsCString m##aName;                                      \
                                                           \
 public:

class nsDigitalTvAudioChannel final
    : public nsImplements<nsDigitalTvAudioChannel, nsIDigitalTvAudioChannel> {
 public:
  static constexpr nsModuleClass kModuleClass{.mRow = 5,
                                              .mCID = "ce489190-1c2b-11e2-892e-0800200c9a66"_iid,
                                              .mContractID = "@vorel/digitaltvaudiochannel;1"};
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfoOfAll<"", nsImplementsWith>(kModuleClass.mCID);

  VOREL_TEXT_ATTRIBUTE(Language)
  VOREL_NUMBER_ATTRIBUTE(uint32_t, Pid)
  VOREL_NUMBER_ATTRIBUTE(uint32_t, Type)

 private:
  ~nsDigitalTvAudioChannel() override = default;
};

/// The list of audio channels that a service holds.
class nsDigitalTvAudioChannels {
 public:
  nsDigitalTvAudioChannels();
  nsresult Get(nsIArray** aChannels) const;
  nsresult Set(nsIArray* aChannels);

 private:
  nsCOMPtr<nsIArray> mChannels;  ///< Nobody else has it. Null: there is no list.
};

/// What a plain service and the result of a scan share.
template <class Class, class Interface>
class nsDigitalTvServiceOf : public nsImplements<Class, Interface> {
 public:
  VOREL_TEXT_ATTRIBUTE(Name)
  VOREL_NUMBER_ATTRIBUTE(uint32_t, Frequency)
  VOREL_NUMBER_ATTRIBUTE(uint32_t, Bandwidth)
  VOREL_NUMBER_ATTRIBUTE(int32_t, Level)
  VOREL_NUMBER_ATTRIBUTE(uint16_t, ServiceId)
  VOREL_NUMBER_ATTRIBUTE(uint32_t, Quality)
  VOREL_TEXT_ATTRIBUTE(Provider)
  VOREL_NUMBER_ATTRIBUTE(uint16_t, VideoPid)
  VOREL_NUMBER_ATTRIBUTE(uint16_t, PmtPid)
  nsresult GetAudioChannels(nsIArray** aAudioChannels) override {
    return mAudioChannels.Get(aAudioChannels);
  }
  nsresult SetAudioChannels(nsIArray* aAudioChannels) override {
    return mAudioChannels.Set(aAudioChannels);
  }

 protected:
  nsDigitalTvServiceOf() = default;
  ~nsDigitalTvServiceOf() override = default;

 private:
  nsDigitalTvAudioChannels mAudioChannels;
};

class nsDigitalTvService final
    : public nsDigitalTvServiceOf<nsDigitalTvService, nsIDigitalTvService> {
 public:
  static constexpr nsModuleClass kModuleClass{.mRow = 4,
                                              .mCID = "d5122968-6a6b-4870-b742-0d23253ed992"_iid,
                                              .mContractID = "@vorel/digitaltvservice;1"};
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfo<"", nsIDigitalTvService>(kModuleClass.mCID);

 private:
  ~nsDigitalTvService() override = default;
};

class nsBDAScanResultDigitalTvService final
    : public nsDigitalTvServiceOf<nsBDAScanResultDigitalTvService,
                                  nsIBDAScanResultDigitalTvService> {
 public:
  static constexpr nsModuleClass kModuleClass{
      .mRow = 17,
      .mCID = "3b04347b-cbb0-4c52-b565-d5e91159cc82"_iid,
      .mContractID = "@vorel/bdascanresultdigitaltvservice;1"};
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfo<"", nsIDigitalTvService, nsIBDAScanResultDigitalTvService>(kModuleClass.mCID);

  VOREL_NUMBER_ATTRIBUTE(uint32_t, CodeRateHP)
  VOREL_NUMBER_ATTRIBUTE(uint32_t, CodeRateLP)
  VOREL_NUMBER_ATTRIBUTE(uint32_t, Constellation)
  VOREL_NUMBER_ATTRIBUTE(uint32_t, TransmissionMode)
  VOREL_NUMBER_ATTRIBUTE(uint32_t, Hierarchy)
  VOREL_NUMBER_ATTRIBUTE(uint32_t, GuardInterval)
  VOREL_NUMBER_ATTRIBUTE(uint32_t, Priority)

 private:
  ~nsBDAScanResultDigitalTvService() override = default;
};

#undef VOREL_TEXT_ATTRIBUTE
#undef VOREL_NUMBER_ATTRIBUTE
