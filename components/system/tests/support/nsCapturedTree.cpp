#include "nsCapturedTree.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

nsCapturedTree::nsCapturedTree() {
  char name[] = "/tmp/vorel-tree-XXXXXX";
  mRoot = mkdtemp(name);
}

nsCapturedTree::~nsCapturedTree() {
  std::error_code error;
  std::filesystem::remove_all(mRoot, error);
}

void nsCapturedTree::Add(const std::string& aDescription) {
  namespace fs = std::filesystem;
  std::istringstream lines(aDescription);
  std::vector<std::pair<size_t, fs::path>> above{{0, mRoot}};
  std::ofstream text;
  size_t textIndent = std::string::npos;
  for (std::string line; std::getline(lines, line);) {
    const size_t indent = line.find_first_not_of(' ');
    if (indent == line.npos) continue;
    if (text.is_open() && indent > textIndent) {
      text << line.substr(indent) << "\n";
      continue;
    }
    text.close();
    if (line[indent] == '#') continue;
    while (above.size() > 1 && above.back().first >= indent) above.pop_back();
    const std::string entry = line.substr(indent);
    const auto place = [&](size_t aEnd) {
      const std::string name = entry.substr(0, aEnd);
      const fs::path path = above.back().second / name.substr(name.find_first_not_of('/'));
      fs::create_directories(path.parent_path());
      return path;
    };
    if (size_t at = entry.find(" = "); at != entry.npos) {
      std::ofstream(place(at)) << entry.substr(at + 3) << "\n";
    } else if (at = entry.find(" -> "); at != entry.npos) {
      fs::create_symlink(entry.substr(at + 4), place(at));
    } else if (entry.ends_with(" |")) {
      text.open(place(entry.size() - 2));
      textIndent = indent;
    } else {
      above.emplace_back(indent, place(entry.npos));
      fs::create_directories(above.back().second);
    }
  }
}

void nsCapturedTree::AddFile(const std::string& aName) {
  std::ifstream file(VOREL_SOURCE_DIR "/components/system/tests/data/" + aName);
  ASSERT_TRUE(file.is_open()) << aName;
  Add({std::istreambuf_iterator<char>(file), {}});
}

void nsCapturedTree::Write(const std::string& aPath, const std::string& aText) {
  std::filesystem::create_directories(std::filesystem::path(mRoot + aPath).parent_path());
  std::ofstream(mRoot + aPath) << aText;
}

std::string nsCapturedTree::Read(const std::string& aPath) const {
  std::ifstream file(mRoot + aPath);
  return {std::istreambuf_iterator<char>(file), {}};
}
