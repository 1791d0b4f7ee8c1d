// The fonts of the running system: "@vorel/system/systemfont;1".
#pragma once

#include "nsXPCOMTypes.h"

class nsIFile;

/// Brings font files into the running process, takes them out again, and tells what is there. What
/// is brought in goes with the process. Main thread.
///
/// A font is known by the leaf name of its file, in any case of ASCII letters: two files of the
/// same name in two folders are one font. A face is known by family, style (1 italic, 0 not) and
/// weight (700 bold, 400 not).
class nsISystemFont : public nsISupports {
 public:
  using Self = nsISystemFont;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsISystemFont";
  static constexpr nsIID kIID = "9e2c1f60-7a4b-4c0e-9f35-2d6f8a51c3b4"_iid;

  /// Adds all fonts below a directory, at any depth, but those whose face the platform has already;
  /// then has the browser engine look at its fonts again. A file that can't be read as a font is
  /// passed over. NS_ERROR_FAILURE when there is no such directory.
  virtual nsresult Synchronize(nsIFile* aDirectory) = 0;
  /// Adds one file, which is to answer nsIFile. Success, and nothing done, when a font of that name
  /// is there. NS_ERROR_FAILURE when the platform refuses the file. When only its description can't
  /// be read the font is in, without a face to be found by, and the result is that of the
  /// description.
  virtual nsresult AddFont(nsISupports* aFile) = 0;
  /// Takes out what AddFont brought in. Success, and nothing done, for a font that AddFont did not
  /// bring in, and for a file of that name at another path. A file that has become unreadable can't
  /// be taken out.
  virtual nsresult RemoveFont(nsISupports* aFile) = 0;
  /// Whether a key, a leaf name in small letters, is a font of the system's folder and one that was
  /// added. That is never so of a font that AddFont brought in; kept as it stands.
  virtual nsresult HasFont(const nsAString& aKey, bool* aFound) = 0;
  /// Looks for a face, first among those of the platform, then among the files known here. A style
  /// of 0xFFFF is italic at any weight. aFile may be null; otherwise *aFile is the file that the
  /// face is known to lie in, or null, and a face known here counts as found, whatever the platform
  /// says.
  virtual nsresult FindFontFace(const nsACString& aFamily, uint16_t aStyle, uint16_t aWeight,
                                bool* aFound, nsIFile** aFile) = 0;
  /// Whether the name ends like a font's: ".ttf", ".ttc", ".otf", ".fon", ".woff", in any case.
  virtual nsresult IsFontFile(nsIFile* aFile, bool* aIsFontFile) = 0;

 protected:
  ~nsISystemFont() = default;
};
