// Files of another machine, made from a compact description.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

/// A directory of its own below the temporary one, gone at the end of the test.
///
/// A description is lines of indented names: `name` is a directory (the deeper lines below are in
/// it), `name = text` a file with that text and a newline, `name -> target` a link, `name |` a file
/// of the deeper lines below. An empty line or one that starts with `#` is nothing; a name may be a
/// path.
class nsCapturedTree {
 public:
  nsCapturedTree();
  ~nsCapturedTree();
  nsCapturedTree(const nsCapturedTree&) = delete;
  nsCapturedTree& operator=(const nsCapturedTree&) = delete;

  const std::string& Root() const { return mRoot; }

  void Add(const std::string& aDescription);

  /// A description from tests/data.
  void AddFile(const std::string& aName);

  void Write(const std::string& aPath, const std::string& aText);
  std::string Read(const std::string& aPath) const;

 private:
  std::string mRoot;
};
