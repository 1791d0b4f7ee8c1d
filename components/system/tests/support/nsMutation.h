// Damages texts, for tests of readers that must stand any bytes.
#pragma once

#include <random>
#include <string>
#include <string_view>

/// The same damage in every run: the seed is fixed.
class nsMutation {
 public:
  size_t Below(size_t aEnd) { return std::uniform_int_distribution<size_t>(0, aEnd - 1)(mRandom); }

  /// Changes, takes out, and doubles up to four pieces of a text. aMarks are the characters that
  /// mean something to the reader, and that are put in where they don't belong.
  std::string Damage(std::string aText, std::string_view aMarks) {
    for (size_t changes = 1 + Below(4); changes > 0 && !aText.empty(); --changes) {
      const size_t at = Below(aText.size());
      switch (Below(4)) {
        case 0:
          aText[at] = static_cast<char>(Below(256));
          break;
        case 1:
          aText.erase(at, 1 + Below(30));
          break;
        case 2:
          aText.insert(at, aText.substr(Below(aText.size()), Below(60)));
          break;
        default:
          aText.insert(at, 1, aMarks[Below(aMarks.size())]);
          break;
      }
    }
    return aText;
  }

 private:
  std::mt19937 mRandom{20};
};
