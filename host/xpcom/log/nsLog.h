// The logging service, "@vorel/log4service;1", its loggers, and "@vorel/log4locationinfo;1".
#pragma once

#include <spdlog/sinks/sink.h>

#include <atomic>
#include <map>
#include <memory>
#include <string>

#include "nsHostLog.h"
#include "nsILog4.h"
#include "nsImplements.h"
#include "nsLock.h"
#include "nsString.h"

class nsLogger final : public nsImplements<nsLogger, nsILog4Logger> {
 public:
  nsLogger(std::string_view aName, uint32_t aLevel) : mName(aName), mLevel(aLevel) {}

  nsresult GetName(nsACString& aName) override;
  nsresult IsEnabledFor(uint32_t aSeverity, bool* aEnabled) override;
  nsresult Log(uint32_t aSeverity, const nsACString& aText,
               nsILog4LocationInfo* aLocation) override;

  void SetLevel(uint32_t aLevel) { mLevel.store(aLevel, std::memory_order_relaxed); }

 private:
  ~nsLogger() override = default;
  bool IsOn(uint32_t aSeverity) const {
    return aSeverity >= mLevel.load(std::memory_order_relaxed);
  }

  const std::string mName;
  // A level above all severities is off.
  std::atomic<uint32_t> mLevel;
};

/// All loggers, their levels, and where records go. Made at the first use and never destroyed, so
/// that logging works before the host has started and after it has stopped.
class nsLogRegistry {
 public:
  static constexpr uint32_t kOff = nsILog4Logger::SEVERITY_ERROR + 1;
  static nsLogRegistry& get();

  nsCOMPtr<nsLogger> Logger(std::string_view aName);
  /// An empty name is the general level.
  nsresult SetLevel(std::string_view aName, uint32_t aLevel);
  void SetFormat(nsLogFormat aFormat);
  nsresult SetFile(std::string_view aNativePath);
  void Write(const spdlog::details::log_msg& aRecord);

 private:
  using Sink = std::shared_ptr<spdlog::sinks::sink>;
  nsLogRegistry();
  uint32_t LevelOf(std::string_view aName) const NS_REQUIRES(mMutex);

  nsMutex mMutex;  // guards what follows; records are written outside it
  std::map<std::string, nsCOMPtr<nsLogger>, std::less<>> mLoggers NS_GUARDED_BY(mMutex);
  // The empty name is always there.
  std::map<std::string, uint32_t, std::less<>> mLevels NS_GUARDED_BY(mMutex);
  nsLogFormat mFormat NS_GUARDED_BY(mMutex) = nsLogFormat::eText;
  const Sink mStandardError;
  Sink mSink NS_GUARDED_BY(mMutex);
};

class nsLog4Service final : public nsImplements<nsLog4Service, nsILog4Service> {
 public:
  nsresult GetLogger(const nsACString& aName, nsILog4Logger** aLogger) override;
  nsresult SetLevel(const nsACString& aName, uint32_t aSeverity) override;

 private:
  ~nsLog4Service() override = default;
};

class nsLog4LocationInfo final : public nsImplements<nsLog4LocationInfo, nsILog4LocationInfo> {
 public:
  nsresult Init(const nsACString& aFile, const nsACString& aFunction, uint32_t aLine) override;
  nsresult GetFile(nsACString& aFile) override;
  nsresult GetFunction(nsACString& aFunction) override;
  nsresult GetLine(uint32_t* aLine) override;

 private:
  ~nsLog4LocationInfo() override = default;
  nsCString mFile, mFunction;
  uint32_t mLine = 0;
};
