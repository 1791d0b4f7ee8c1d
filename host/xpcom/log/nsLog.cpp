#include "nsLog.h"

#include <fmt/chrono.h>
#include <spdlog/details/log_msg.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_color_sinks.h>

#include <array>
#include <nlohmann/json.hpp>

#include "nsUtf.h"

namespace {

struct Severity {
  std::string_view mName;
  spdlog::level::level_enum mLevel;
};
// By the number of the severity; the last is no severity, but a level.
constexpr std::array<Severity, 4> kSeverities = {{{"debug", spdlog::level::debug},
                                                  {"warning", spdlog::level::warn},
                                                  {"error", spdlog::level::err},
                                                  {"off", spdlog::level::off}}};

std::string_view SeverityName(spdlog::level::level_enum aLevel) {
  for (const Severity& each : kSeverities)
    if (each.mLevel == aLevel) return each.mName;
  return {};
}

std::string_view ViewOf(spdlog::string_view_t aText) { return {aText.data(), aText.size()}; }

int64_t MillisecondsOf(spdlog::log_clock::time_point aTime) {
  using std::chrono::duration_cast, std::chrono::milliseconds;
  return duration_cast<milliseconds>(aTime.time_since_epoch()).count() % 1000;
}

class TextFormatter final : public spdlog::formatter {
 public:
  void format(const spdlog::details::log_msg& aRecord, spdlog::memory_buf_t& aLine) override {
    auto out = fmt::appender(aLine);
    fmt::format_to(out, "{:%Y-%m-%d %H:%M:%S}.{:03} ",
                   fmt::localtime(std::time_t{spdlog::log_clock::to_time_t(aRecord.time)}),
                   MillisecondsOf(aRecord.time));
    aRecord.color_range_start = aLine.size();
    fmt::format_to(out, "{:7}", SeverityName(aRecord.level));
    aRecord.color_range_end = aLine.size();
    *out++ = ' ';
    AppendEscaped(aRecord.logger_name, aLine);
    aLine.append(std::string_view(": "));
    AppendEscaped(aRecord.payload, aLine);
    if (!aRecord.source.empty()) {
      aLine.append(std::string_view(" ("));
      AppendEscaped(aRecord.source.funcname, aLine);
      aLine.append(std::string_view(", "));
      AppendEscaped(aRecord.source.filename, aLine);
      fmt::format_to(out, ":{})", aRecord.source.line);
    }
    aLine.push_back('\n');
  }
  std::unique_ptr<spdlog::formatter> clone() const override {
    return std::make_unique<TextFormatter>();
  }

 private:
  /// A record is one line, and has no say over the terminal.
  static void AppendEscaped(spdlog::string_view_t aText, spdlog::memory_buf_t& aLine) {
    aLine.append(vorel::Printable(ViewOf(aText)));
  }
};

class JsonFormatter final : public spdlog::formatter {
 public:
  void format(const spdlog::details::log_msg& aRecord, spdlog::memory_buf_t& aLine) override {
    nlohmann::ordered_json record;
    record["time"] =
        fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z",
                    fmt::gmtime(std::time_t{spdlog::log_clock::to_time_t(aRecord.time)}),
                    MillisecondsOf(aRecord.time));
    record["severity"] = SeverityName(aRecord.level);
    record["logger"] = ViewOf(aRecord.logger_name);
    record["text"] = ViewOf(aRecord.payload);
    if (!aRecord.source.empty()) {
      record["file"] = aRecord.source.filename;
      record["function"] = aRecord.source.funcname;
      record["line"] = aRecord.source.line;
    }
    aLine.append(record.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    aLine.push_back('\n');
  }
  std::unique_ptr<spdlog::formatter> clone() const override {
    return std::make_unique<JsonFormatter>();
  }
};

std::unique_ptr<spdlog::formatter> NewFormatter(nsLogFormat aFormat) {
  if (aFormat == nsLogFormat::eJson) return std::make_unique<JsonFormatter>();
  return std::make_unique<TextFormatter>();
}

}  // namespace

nsresult NS_SetLogLevel(std::string_view aText) {
  std::string_view name, level = aText;
  if (const size_t equals = aText.rfind('='); equals != aText.npos) {
    name = aText.substr(0, equals);
    level = aText.substr(equals + 1);
    if (name.empty()) return NS_ERROR_INVALID_ARG;
  }
  for (uint32_t i = 0; i < kSeverities.size(); ++i)
    if (kSeverities[i].mName == level) return nsLogRegistry::get().SetLevel(name, i);
  return NS_ERROR_INVALID_ARG;
}

void NS_SetLogFormat(nsLogFormat aFormat) { nsLogRegistry::get().SetFormat(aFormat); }

nsresult NS_SetLogFile(std::string_view aNativePath) {
  return nsLogRegistry::get().SetFile(aNativePath);
}

nsresult nsLogger::GetName(nsACString& aName) { return NS_Give(mName, aName); }

nsresult nsLogger::IsEnabledFor(uint32_t aSeverity, bool* aEnabled) {
  if (!aEnabled) return NS_ERROR_NULL_POINTER;
  *aEnabled = IsOn(aSeverity) && aSeverity < nsLogRegistry::kOff;
  return NS_OK;
}

nsresult nsLogger::Log(uint32_t aSeverity, const nsACString& aText,
                       nsILog4LocationInfo* aLocation) {
  if (aSeverity >= nsLogRegistry::kOff) return NS_ERROR_INVALID_ARG;
  if (!IsOn(aSeverity)) return NS_OK;
  nsCString file, function;
  uint32_t line = 0;
  spdlog::source_loc place;
  if (aLocation && NS_SUCCEEDED(aLocation->GetFile(file)) &&
      NS_SUCCEEDED(aLocation->GetFunction(function)) && NS_SUCCEEDED(aLocation->GetLine(&line)))
    place = {file.get(), static_cast<int>(line), function.get()};
  const std::string_view text = NS_View(aText);
  nsLogRegistry::get().Write(
      spdlog::details::log_msg(place, mName, kSeverities[aSeverity].mLevel,
                               spdlog::string_view_t(text.data(), text.size())));
  return NS_OK;
}

nsLogRegistry& nsLogRegistry::get() {
  static auto* const sRegistry = new nsLogRegistry;
  return *sRegistry;
}

nsLogRegistry::nsLogRegistry()
    : mLevels{{"", nsILog4Logger::SEVERITY_WARNING}},
      mStandardError(std::make_shared<spdlog::sinks::stderr_color_sink_mt>()),
      mSink(mStandardError) {
  mStandardError->set_formatter(NewFormatter(mFormat));
}

nsCOMPtr<nsLogger> nsLogRegistry::Logger(std::string_view aName) {
  const nsAutoLock lock(mMutex);
  auto found = mLoggers.find(aName);
  if (found == mLoggers.end())
    found = mLoggers.emplace(aName, MakeRefCounted<nsLogger>(aName, LevelOf(aName))).first;
  return found->second;
}

uint32_t nsLogRegistry::LevelOf(std::string_view aName) const {
  while (true) {
    if (const auto found = mLevels.find(aName); found != mLevels.end()) return found->second;
    const size_t dot = aName.rfind('.');
    aName = aName.substr(0, dot == aName.npos ? 0 : dot);
  }
}

nsresult nsLogRegistry::SetLevel(std::string_view aName, uint32_t aLevel) {
  if (aLevel > kOff) return NS_ERROR_INVALID_ARG;
  const nsAutoLock lock(mMutex);
  mLevels.insert_or_assign(std::string(aName), aLevel);
  for (const auto& [name, logger] : mLoggers) logger->SetLevel(LevelOf(name));
  return NS_OK;
}

void nsLogRegistry::SetFormat(nsLogFormat aFormat) {
  const nsAutoLock lock(mMutex);
  mFormat = aFormat;
  mStandardError->set_formatter(NewFormatter(aFormat));
  if (mSink != mStandardError) mSink->set_formatter(NewFormatter(aFormat));
}

nsresult nsLogRegistry::SetFile(std::string_view aNativePath) {
  Sink sink = mStandardError;
  if (!aNativePath.empty()) {
    try {
      sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(std::string(aNativePath));
    } catch (const spdlog::spdlog_ex&) {
      return NS_ERROR_FILE_ACCESS_DENIED;
    }
  }
  const nsAutoLock lock(mMutex);
  if (sink != mStandardError) sink->set_formatter(NewFormatter(mFormat));
  mSink = sink;
  return NS_OK;
}

void nsLogRegistry::Write(const spdlog::details::log_msg& aRecord) {
  Sink sink;
  {
    const nsAutoLock lock(mMutex);
    sink = mSink;
  }
  try {
    sink->log(aRecord);
    sink->flush();
  } catch (const spdlog::spdlog_ex&) {
    mStandardError->log(aRecord);
  }
}

nsresult nsLog4Service::GetLogger(const nsACString& aName, nsILog4Logger** aLogger) {
  if (!aLogger) return NS_ERROR_NULL_POINTER;
  nsLogRegistry::get().Logger(NS_View(aName)).forget(aLogger);
  return NS_OK;
}

nsresult nsLog4Service::SetLevel(const nsACString& aName, uint32_t aSeverity) {
  return nsLogRegistry::get().SetLevel(NS_View(aName), aSeverity);
}

nsresult nsLog4LocationInfo::Init(const nsACString& aFile, const nsACString& aFunction,
                                  uint32_t aLine) {
  mFile = aFile;
  mFunction = aFunction;
  mLine = aLine;
  return NS_OK;
}

nsresult nsLog4LocationInfo::GetFile(nsACString& aFile) { return NS_CStringCopy(aFile, mFile); }

nsresult nsLog4LocationInfo::GetFunction(nsACString& aFunction) {
  return NS_CStringCopy(aFunction, mFunction);
}

nsresult nsLog4LocationInfo::GetLine(uint32_t* aLine) {
  if (!aLine) return NS_ERROR_NULL_POINTER;
  *aLine = mLine;
  return NS_OK;
}
