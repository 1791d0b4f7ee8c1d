// Has the script engine parse the part of it that is script itself, and writes what comes of that
// as a source file. Runs when the host is built.
//
// usage: make_self_hosted OUTPUT
#include <js/Initialization.h>
#include <jsapi.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <vector>

#include "nsEngineBuild.h"

namespace {

constexpr uint32_t kHeap = 64 << 20;

std::vector<uint8_t> sBytes;

bool Take(JSContext*, JS::SelfHostedCache aBytes) {
  sBytes.assign(aBytes.begin(), aBytes.end());
  return true;
}

bool Parse() {
  if (!NS_MarkEngineBuild()) {
    std::fprintf(stderr,
                 "the script engine has no build id: it parses its own scripts at each start\n");
    return true;
  }
  JSContext* const cx = JS_Init() ? JS_NewContext(kHeap) : nullptr;
  return cx && JS::InitSelfHostedCode(cx, nullptr, Take);
}

bool Write(const char* aPath) {
  std::ofstream file(aPath);
  file << "#include \"nsSelfHostedBytes.h\"\n\nalignas(16) const uint8_t kSelfHostedBytes[] = {";
  for (size_t i = 0; i < sBytes.size(); ++i)
    file << (i % 32 ? "" : "\n") << static_cast<unsigned>(sBytes[i]) << ',';
  file << (sBytes.empty() ? "0" : "") << "};\nconst size_t kSelfHostedSize = " << sBytes.size()
       << ";\n";
  file.close();
  return file.good();
}

}  // namespace

int main(int aCount, char** aArguments) {
  if (aCount != 2 || !Parse() || !Write(aArguments[1])) {
    std::fprintf(stderr, "make_self_hosted: the script engine's own scripts can't be written\n");
    std::_Exit(1);
  }
  std::_Exit(0);  // what the engine leaves in memory is no matter
}
