// The logging service: named loggers, three severities, a place in the source.
#pragma once

#include "nsXPCOMTypes.h"

/// Where a message was written.
class nsILog4LocationInfo : public nsISupports {
 public:
  using Self = nsILog4LocationInfo;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsILog4LocationInfo";
  static constexpr nsIID kIID = "3f1c8d52-6f0e-4b1e-9d52-0d7c1a2b6e41"_iid;

  /// Source path without ending ("components/system/src/base/nsSystemManager"), function
  /// ("nsSystemManager::Init") and line, counted from 1. A second call replaces the first.
  virtual nsresult Init(const nsACString& aFile, const nsACString& aFunction, uint32_t aLine) = 0;
  virtual nsresult GetFile(nsACString& aFile) = 0;
  virtual nsresult GetFunction(nsACString& aFunction) = 0;
  virtual nsresult GetLine(uint32_t* aLine) = 0;

 protected:
  ~nsILog4LocationInfo() = default;
};

/// A named logger. Lives until the process ends; any thread.
class nsILog4Logger : public nsISupports {
 public:
  using Self = nsILog4Logger;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsILog4Logger";
  static constexpr nsIID kIID = "6a0f5a3e-2f0b-4c58-8f9d-7f4f5b0c9a12"_iid;
  static constexpr uint32_t SEVERITY_DEBUG = 0;
  static constexpr uint32_t SEVERITY_WARNING = 1;
  static constexpr uint32_t SEVERITY_ERROR = 2;

  virtual nsresult GetName(nsACString& aName) = 0;
  /// Costs next to nothing: one load and one comparison. False for an unknown severity.
  virtual nsresult IsEnabledFor(uint32_t aSeverity, bool* aEnabled) = 0;
  /// Writes one record, whole even when several threads log; nothing when the severity is off. The
  /// text is UTF-8; the location may be null. NS_ERROR_INVALID_ARG for an unknown severity.
  virtual nsresult Log(uint32_t aSeverity, const nsACString& aText,
                       nsILog4LocationInfo* aLocation) = 0;

 protected:
  ~nsILog4Logger() = default;
};

/// "@vorel/log4service;1".
class nsILog4Service : public nsISupports {
 public:
  using Self = nsILog4Service;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsILog4Service";
  static constexpr nsIID kIID = "b7d4e2c6-93a1-4f2f-8a53-1c5e6b7a8d90"_iid;

  /// The logger of a name, the same object for the same name. Its level is that of the longest
  /// configured name that is the name itself or stands before a "." in it, else the general level.
  virtual nsresult GetLogger(const nsACString& aName, nsILog4Logger** aLogger) = 0;
  /// Sets the level of a name and of those below it, or, for the empty name, the general level. A
  /// severity, or 3 for nothing at all; NS_ERROR_INVALID_ARG for others. Loggers that exist follow
  /// at once.
  virtual nsresult SetLevel(const nsACString& aName, uint32_t aSeverity) = 0;

 protected:
  ~nsILog4Service() = default;
};
