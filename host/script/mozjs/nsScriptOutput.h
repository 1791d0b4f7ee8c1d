// What scripts print, and reports of their errors.
#pragma once

#include <js/RootingAPI.h>
#include <jsapi.h>

#include <functional>
#include <string>
#include <utility>

class nsScriptRuntime;

/// The output of a runtime. Main thread.
class nsScriptOutput {
 public:
  explicit nsScriptOutput(nsScriptRuntime& aRuntime) : mRuntime(aRuntime) {}

  /// Called with true before text is written, then with false.
  void SetAround(std::function<void(bool)> aAround) { mAround = std::move(aAround); }
  /// Whether the application is at its end when it can't print any more.
  void SetEndsWithOutput(bool aEnds) { mEndsWithOutput = aEnds; }

  /// Writes to standard output, or standard error.
  void Print(bool aIsError, const std::string& aText);
  /// Writes the pending exception to standard error, as an error that nobody caught, and clears it.
  void ReportException();
  void ReportValue(JS::HandleValue aException, const char* aPrefix);
  /// The same for an error that somebody did catch.
  void Tell(JS::HandleValue aException, const char* aPrefix);

  /// Stands around what is written by other means.
  class Scope {
   public:
    explicit Scope(const nsScriptOutput& aOutput) : mAround(aOutput.mAround) {
      if (mAround) mAround(true);
    }
    ~Scope() {
      if (mAround) mAround(false);
    }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    const std::function<void(bool)> mAround;
  };

 private:
  nsScriptRuntime& mRuntime;
  std::function<void(bool)> mAround;
  bool mEndsWithOutput = false;
};
