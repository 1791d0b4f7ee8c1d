#include "nsSimulatedRegistry.h"

#include <set>
#include <string>

#include <utility>

#include "nsCore.h"
#include "nsPlatformNetworkSeed.h"

namespace {

using Registry = nsPlatformRegistry;

std::vector<uint8_t> ReadHex(const nsMachineValue& aValue) {
  const std::string& text = aValue.AsString();
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i < text.size(); i += 2) {
    const int high = vorel::detail::HexDigit(text[i]);
    const int low = i + 1 < text.size() ? vorel::detail::HexDigit(text[i + 1]) : -1;
    if (high < 0 || low < 0) aValue.Fail("must be pairs of hexadecimal digits");
    bytes.push_back(static_cast<uint8_t>(high << 4 | low));
  }
  return bytes;
}

nsRegistryValue ReadValue(const nsMachineValue& aValue) {
  nsRegistryValue value;
  aValue.AsObject([&](nsMachineObject& aObject) {
    value.mName = aObject.Required("name").AsString();
    const nsMachineValue* text = aObject.Optional("text");
    const nsMachineValue* texts = aObject.Optional("texts");
    const nsMachineValue* number = aObject.Optional("number");
    const nsMachineValue* bytes = aObject.Optional("bytes");
    if (!!text + !!texts + !!number + !!bytes != 1)
      aObject.Fail("must have one of \"text\", \"texts\", \"number\", \"bytes\"");
    if (text) {
      value.mType = Registry::kString;
      value.mData = NS_RegistryString(text->AsString());
    } else if (texts) {
      std::vector<std::string> list;
      for (const nsMachineValue& element : texts->AsArray()) list.push_back(element.AsString());
      value.mType = Registry::kMultiString;
      value.mData = NS_RegistryStrings(list);
    } else if (number) {
      value.mType = Registry::kDword;
      value.mData = NS_RegistryDword(number->AsInteger<uint32_t>());
    } else {
      value.mType = Registry::kBinary;
      value.mData = ReadHex(*bytes);
    }
  });
  return value;
}

nsRegistryData ReadKeys(const nsMachineValue& aValue) {
  nsRegistryData data;
  std::set<std::string> paths;
  for (const nsMachineValue& element : aValue.AsArray())
    element.AsObject([&](nsMachineObject& aObject) {
      const nsMachineValue& path = aObject.Required("key");
      if (!paths.insert(nsRegistryData::Spelling(path.AsString())).second)
        path.FailRepeated("key", path.AsString());
      std::set<std::string> names;
      auto& key = data.mKeys.emplace_back(nsRegistryData::Key{path.AsString(), {}});
      for (const nsMachineValue& each : aObject.Required("values").AsArray()) {
        nsRegistryValue value = ReadValue(each);
        if (!names.insert(NS_ToLowerAscii(value.mName)).second)
          each.FailRepeated("value", value.mName);
        key.mValues.push_back(std::move(value));
      }
    });
  return data;
}

}  // namespace

nsSimulatedRegistry::nsSimulatedRegistry(nsSimulatedCallsRef aCalls,
                                         std::shared_ptr<nsPlatformNetwork> aNetwork)
    : nsPlatformRegistryStore([network = std::move(aNetwork)](const std::string& aPath) {
        return NS_SeedTcpipKey(aPath, *network, [](const nsAdapterAddresses&) { return ""; });
      }),
      nsSimulatedPort(std::move(aCalls), "Registry") {}

void nsSimulatedRegistry::Put(const std::string& aPath, nsRegistryValue aValue) {
  const nsAutoLock lock(mLock);
  nsRegistryData::Key& key = mData.Make(aPath);
  key.DropMark();
  key.Set(std::move(aValue));
}

void nsSimulatedRegistry::Take(const std::string& aPath, const std::string& aName) {
  const nsAutoLock lock(mLock);
  if (nsRegistryData::Key* key = mData.Find(aPath))
    std::erase_if(key->mValues, [&](const nsRegistryValue& aValue) {
      return NS_SameRegistryName(aValue.mName, aName);
    });
}

std::vector<nsRegistryValue> nsSimulatedRegistry::ValuesOf(const std::string& aPath) {
  const nsAutoLock lock(mLock);
  nsRegistryData::Key* const found = mData.Find(aPath);
  nsRegistryData::Key key = found ? *found : nsRegistryData::Key();
  key.DropMark();
  return key.mValues;
}

void nsSimulatedRegistry::ReadFacts(const nsMachineValue& aValue) { ReadChange(aValue)(); }

std::function<void()> nsSimulatedRegistry::ReadChange(const nsMachineValue& aValue) {
  return [this, data = ReadKeys(aValue)] {
    const nsAutoLock lock(mLock);
    mData.Merge(data);
  };
}

nsresult nsSimulatedRegistry::Read(const char* aMethod, const Visitor& aVisitor) {
  if (nsresult rv = aMethod ? Enter(aMethod) : NS_OK; NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  return aVisitor(mData);
}

nsresult nsSimulatedRegistry::Change(const char* aMethod, const Visitor& aVisitor) {
  if (nsresult rv = aMethod ? Enter(aMethod) : NS_OK; NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  nsRegistryData data = mData;
  if (nsresult rv = aVisitor(data); NS_FAILED(rv)) return rv;
  if (aMethod && data != mData) Record(aMethod);
  mData = std::move(data);
  return NS_OK;
}
