// A service together with the parameters of the terrestrial channel that carries it.
#pragma once

#include "nsIDigitalTvService.h"

/// "@vorel/bdascanresultdigitaltvservice;1". What a scan finds and what the channels file keeps.
/// All numbers are 0 in a new object, and none is checked.
class nsIBDAScanResultDigitalTvService : public nsIDigitalTvService {
 public:
  using Self = nsIBDAScanResultDigitalTvService;
  using Base = nsIDigitalTvService;
  static constexpr std::string_view kName = "nsIBDAScanResultDigitalTvService";
  static constexpr nsIID kIID = "3b04347b-cbb0-4c52-b565-d5e91159cc82"_iid;

  /// Of the high priority stream: 0 is 1/2, 1 is 2/3, 2 is 3/4, 3 is 5/6, 4 is 7/8, 5 is automatic.
  virtual nsresult GetCodeRateHP(uint32_t* aCodeRateHP) = 0;
  virtual nsresult SetCodeRateHP(uint32_t aCodeRateHP) = 0;
  /// Of the low priority stream, in the same coding.
  virtual nsresult GetCodeRateLP(uint32_t* aCodeRateLP) = 0;
  virtual nsresult SetCodeRateLP(uint32_t aCodeRateLP) = 0;
  /// 0 is QPSK, 1 is 16-QAM, 2 is 64-QAM, 3 is automatic.
  virtual nsresult GetConstellation(uint32_t* aConstellation) = 0;
  virtual nsresult SetConstellation(uint32_t aConstellation) = 0;
  /// 0 is 2K, 1 is 8K, other values are automatic.
  virtual nsresult GetTransmissionMode(uint32_t* aTransmissionMode) = 0;
  virtual nsresult SetTransmissionMode(uint32_t aTransmissionMode) = 0;
  /// 0 is none, other values are automatic.
  virtual nsresult GetHierarchy(uint32_t* aHierarchy) = 0;
  virtual nsresult SetHierarchy(uint32_t aHierarchy) = 0;
  /// 0 is 1/32, 1 is 1/16, 2 is 1/8, 3 is 1/4, 4 is automatic. The channels file has no place for
  /// it: it is 0 in a service that was read from there.
  virtual nsresult GetGuardInterval(uint32_t* aGuardInterval) = 0;
  virtual nsresult SetGuardInterval(uint32_t aGuardInterval) = 0;
  /// After a scan the priority bit of the terrestrial delivery descriptor. The channels file writes
  /// this attribute, not the guard interval, as its guard interval, 0 to 4 as told there, and reads
  /// it back into here.
  virtual nsresult GetPriority(uint32_t* aPriority) = 0;
  virtual nsresult SetPriority(uint32_t aPriority) = 0;

 protected:
  ~nsIBDAScanResultDigitalTvService() = default;
};
