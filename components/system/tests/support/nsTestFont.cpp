#include "nsTestFont.h"

#include <stdlib.h>

#include <cstdint>
#include <fstream>
#include <utility>
#include <vector>

namespace {

std::string Number(uint64_t aValue, int aBytes) {
  std::string text;
  for (int i = aBytes - 1; i >= 0; --i) text += static_cast<char>(aValue >> (8 * i));
  return text;
}

std::string File(std::vector<std::pair<std::string, std::string>> aTables) {
  std::string file = Number(0x10000, 4) + Number(aTables.size(), 2) + Number(128, 2) +
                     Number(3, 2) + Number(aTables.size() * 16 - 128, 2);
  size_t at = file.size() + aTables.size() * 16;
  std::string body;
  for (auto& [tag, data] : aTables) {
    file += tag + Number(0, 4) + Number(at + body.size(), 4) + Number(data.size(), 4);
    body += data + std::string((4 - data.size() % 4) % 4, '\0');
  }
  return file + body;
}

}  // namespace

std::string nsTestFont::Bytes() const {
  std::string name = Number(0, 2) + Number(2, 2) + Number(6 + 2 * 12, 2);
  name += Number(3, 2) + Number(1, 2) + Number(0x409, 2) + Number(1, 2) +
          Number(mFamily.size() * 2, 2) + Number(0, 2);
  name += Number(3, 2) + Number(1, 2) + Number(0x409, 2) + Number(2, 2) +
          Number(mStyle.size() * 2, 2) + Number(mFamily.size() * 2, 2);
  for (const char letter : mFamily + mStyle) name += std::string(1, '\0') + letter;

  // 'A' is glyph 1.
  const std::string cmap = Number(0, 2) + Number(1, 2) + Number(3, 2) + Number(1, 2) +
                           Number(12, 4) + Number(4, 2) + Number(32, 2) + Number(0, 2) +
                           Number(4, 2) + Number(4, 2) + Number(1, 2) + Number(0, 2) +
                           Number(65, 2) + Number(0xFFFF, 2) + Number(0, 2) + Number(65, 2) +
                           Number(0xFFFF, 2) + Number(0xFFC0, 2) + Number(1, 2) + Number(0, 4);
  // A triangle.
  const std::string glyph = Number(1, 2) + Number(0, 4) + Number(500, 2) + Number(500, 2) +
                            Number(2, 2) + Number(0, 2) + "\x01\x01\x01" + Number(0, 2) +
                            Number(500, 2) + Number(0xFF06, 2) + Number(0, 2) + Number(0, 2) +
                            Number(500, 2) + Number(0, 1);
  const unsigned style = (mBold ? 1u : 0u) | (mItalic ? 2u : 0u);
  const std::string head =
      Number(0x10000, 4) + Number(0x10000, 4) + Number(0, 4) + Number(0x5F0F3CF5, 4) +
      Number(0, 2) + Number(1000, 2) + Number(0, 8) + Number(0, 8) + Number(0, 4) + Number(500, 2) +
      Number(500, 2) + Number(style, 2) + Number(8, 2) + Number(2, 2) + Number(1, 2) + Number(0, 2);
  const unsigned selection = (mItalic ? 1u : 0u) | (mBold ? 0x20u : 0u) | (style == 0 ? 0x40u : 0u);
  const std::string os2 = Number(1, 2) + Number(500, 2) + Number(mBold ? 700 : 400, 2) +
                          Number(5, 2) + std::string(54, '\0') + Number(selection, 2) +
                          Number(65, 2) + Number(65, 2) + Number(500, 2) + Number(0, 2) +
                          Number(0, 2) + Number(500, 2) + Number(0, 2) + Number(0, 8);
  const std::string hhea = Number(0x10000, 4) + Number(800, 2) + Number(0xFF38, 2) + Number(0, 2) +
                           Number(500, 2) + std::string(22, '\0') + Number(1, 2);
  const std::string maxp =
      Number(0x10000, 4) + Number(2, 2) + Number(3, 2) + Number(1, 2) + std::string(22, '\0');
  return File({{"OS/2", os2},
               {"cmap", cmap},
               {"glyf", glyph},
               {"head", head},
               {"hhea", hhea},
               {"hmtx", Number(500, 2) + Number(0, 2) + Number(0, 2)},
               {"loca", Number(0, 4) + Number(0, 4) + Number(glyph.size(), 4)},
               {"maxp", maxp},
               {"name", name},
               {"post", Number(0x30000, 4) + std::string(28, '\0')}});
}

std::filesystem::path NS_TestFontFolder() {
  static char sPath[] = "/tmp/vorel-fontconfig-XXXXXX";
  static const std::filesystem::path sFolder = [] {
    if (!mkdtemp(sPath)) return std::filesystem::path();
    const std::filesystem::path folder(sPath);
    std::filesystem::create_directory(folder / "fonts");
    std::ofstream(folder / "fonts.conf")
        << "<fontconfig><dir>" << (folder / "fonts").string() << "</dir><cachedir>"
        << (folder / "cache").string() << "</cachedir></fontconfig>";
    setenv("FONTCONFIG_FILE", (folder / "fonts.conf").c_str(), 1);
    atexit([] { std::filesystem::remove_all(sPath); });
    return folder;
  }();
  return sFolder;
}
