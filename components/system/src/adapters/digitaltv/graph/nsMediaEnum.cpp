#include "nsMediaEnum.h"

#include <cstdlib>

void* NS_MediaAlloc(size_t aSize) { return std::malloc(aSize); }
void NS_MediaFree(void* aMemory) { std::free(aMemory); }

char16_t* NS_MediaText(std::u16string_view aText) {
  auto* const text = static_cast<char16_t*>(NS_MediaAlloc((aText.size() + 1) * sizeof(char16_t)));
  if (!text) return nullptr;
  aText.copy(text, aText.size());
  text[aText.size()] = 0;
  return text;
}

char16_t* NS_NewMediaBSTR(std::u16string_view aText) {
  const auto bytes = static_cast<uint32_t>(aText.size() * sizeof(char16_t));
  auto* const memory = static_cast<char*>(NS_MediaAlloc(sizeof bytes + bytes + sizeof(char16_t)));
  if (!memory) return nullptr;
  std::memcpy(memory, &bytes, sizeof bytes);
  auto* const text = reinterpret_cast<char16_t*>(memory + sizeof bytes);
  aText.copy(text, aText.size());
  text[aText.size()] = 0;
  return text;
}

void NS_FreeMediaBSTR(char16_t* aText) {
  if (aText) NS_MediaFree(reinterpret_cast<char*>(aText) - sizeof(uint32_t));
}

std::u16string_view NS_MediaBSTRView(const char16_t* aText) {
  if (!aText) return {};
  uint32_t bytes;
  std::memcpy(&bytes, reinterpret_cast<const char*>(aText) - sizeof bytes, sizeof bytes);
  return {aText, bytes / sizeof(char16_t)};
}
