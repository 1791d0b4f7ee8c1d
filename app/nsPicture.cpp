#include "nsPicture.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <ostream>
#include <vector>

#include "nsIArray.h"
#include "nsIClassInfo.h"
#include "nsIFile.h"
#include "nsISystemAdapter.h"
#include "nsISystemApplicationProfile.h"
#include "nsISystemApplicationProfileBinding.h"
#include "nsISystemManager.h"
#include "nsScriptTable.h"
#include "nsString.h"
#include "nsXPCOM.h"

using Json = nlohmann::ordered_json;

namespace {

// Deep enough for an adapter's connectors and an address's parts; objects that point at each other
// end here.
constexpr int kMaxDepth = 3;

std::string Text(const nsAString& aText) { return NS_ToUtf8(aText); }

// Bytes that are no UTF-8 must not stop the output.
std::string Clean(std::string_view aBytes) { return NS_ToUtf8(NS_ToUtf16(aBytes)); }

template <class Call>
void ForEach(nsIArray* aArray, Call aCall) {
  uint32_t length = 0;
  if (!aArray || NS_FAILED(aArray->GetLength(&length))) return;
  for (uint32_t i = 0; i < length; ++i) {
    nsCOMPtr<nsISupports> element;
    if (NS_SUCCEEDED(aArray->QueryElementAt(i, nsISupports::kIID, NS_OutVoid(element))))
      aCall(element.get());
  }
}

// The interfaces that an object's class information lists; none without class information.
std::vector<nsIID> ListedInterfaces(nsISupports* aObject) {
  std::vector<nsIID> out;
  const auto info = do_QueryInterface<nsIClassInfo>(aObject);
  uint32_t count = 0;
  nsIID** iids = nullptr;
  if (!info || NS_FAILED(info->GetInterfaces(&count, &iids))) return out;
  for (uint32_t i = 0; i < count; ++i) {
    out.push_back(*iids[i]);
    NS_Free(iids[i]);
  }
  NS_Free(iids);
  return out;
}

}  // namespace

nsPicture::nsPicture(std::span<const nsScriptInterface* const> aInterfaces)
    : mInterfaces(aInterfaces) {}

const nsScriptInterface* nsPicture::Find(const nsID& aIID) const {
  const auto found =
      std::ranges::find_if(mInterfaces, [&](auto* aTable) { return *aTable->mIID == aIID; });
  return found == mInterfaces.end() ? nullptr : *found;
}

void nsPicture::AddAttributes(nsISupports* aObject, const nsScriptInterface& aInterface, int aDepth,
                              Json* aOut) const {
  if (aInterface.mParent)
    if (const auto* parent = Find(*aInterface.mParent))
      AddAttributes(aObject, *parent, aDepth, aOut);
  nsISupports* self = nullptr;
  if (NS_FAILED(aObject->QueryInterface(*aInterface.mIID, reinterpret_cast<void**>(&self)))) return;
  for (const nsScriptMember& member : aInterface.mMembers) {
    if (!member.mIsAttribute) continue;
    const std::string name(member.mName);
    nsScriptSlot slot;
    nsString text;
    nsCString bytes;
    const nsScriptType type = member.mParams[0].mType;
    // The adapter of a binding stands as an index already. The stored view of an adapter is not
    // what is in force, and to ask for it would make the store.
    if (member.mParams[0].mIID && *member.mParams[0].mIID == nsISystemAdapter::kIID) continue;
    if (type == nsScriptType::eString) slot.Set<nsAString*>(&text);
    if (type == nsScriptType::eCString) slot.Set<nsACString*>(&bytes);
    if (NS_FAILED(member.mCall(self, &slot))) continue;
    switch (type) {
      case nsScriptType::eBool:
        (*aOut)[name] = slot.Get<bool>();
        break;
      case nsScriptType::eInt8:
        (*aOut)[name] = slot.Get<int8_t>();
        break;
      case nsScriptType::eUint8:
        (*aOut)[name] = slot.Get<uint8_t>();
        break;
      case nsScriptType::eInt16:
        (*aOut)[name] = slot.Get<int16_t>();
        break;
      case nsScriptType::eUint16:
        (*aOut)[name] = slot.Get<uint16_t>();
        break;
      case nsScriptType::eInt32:
        (*aOut)[name] = slot.Get<int32_t>();
        break;
      case nsScriptType::eUint32:
        (*aOut)[name] = slot.Get<uint32_t>();
        break;
      case nsScriptType::eInt64:
        (*aOut)[name] = slot.Get<int64_t>();
        break;
      case nsScriptType::eUint64:
        (*aOut)[name] = slot.Get<uint64_t>();
        break;
      case nsScriptType::eFloat:
        (*aOut)[name] = slot.Get<float>();
        break;
      case nsScriptType::eDouble:
        (*aOut)[name] = slot.Get<double>();
        break;
      case nsScriptType::eString:
        (*aOut)[name] = Text(text);
        break;
      case nsScriptType::eCString:
        (*aOut)[name] = Clean(bytes.view());
        break;
      case nsScriptType::eChars: {
        auto* chars = slot.Get<char*>();
        (*aOut)[name] = chars ? Json(Clean(chars)) : Json();
        NS_Free(chars);
        break;
      }
      case nsScriptType::eInterface: {
        nsCOMPtr<nsISupports> object;
        *object.getter_AddRefs() = slot.Get<nsISupports*>();
        (*aOut)[name] = Value(object.get(), aDepth + 1);
        break;
      }
      default:
        break;  // nothing that could be shown
    }
  }
  self->Release();
}

Json nsPicture::Value(nsISupports* aObject, int aDepth) const {
  if (!aObject) return {};
  if (const auto array = do_QueryInterface<nsIArray>(aObject)) {
    Json out = Json::array();
    ForEach(array.get(), [&](nsISupports* aElement) { out.push_back(Value(aElement, aDepth)); });
    return out;
  }
  if (const auto file = do_QueryInterface<nsIFile>(aObject)) {
    nsString path;
    return NS_SUCCEEDED(file->GetPath(path)) ? Json(Text(path)) : Json();
  }
  if (aDepth > kMaxDepth) return {};
  Json out = Json::object();
  for (const nsIID& iid : ListedInterfaces(aObject))
    if (const auto* table = Find(iid)) AddAttributes(aObject, *table, aDepth, &out);
  // A value that has a text form, an address, is shown by it and not byte by byte.
  if (const auto text = out.find("string"); text != out.end()) return *text;
  return out;
}

Json nsPicture::Describe(nsISupports* aObject) const {
  Json out = Json::object();
  auto& names = out["interfaces"] = Json::array();
  for (const nsIID& iid : ListedInterfaces(aObject)) {
    const auto* table = Find(iid);
    names.push_back(table ? std::string(table->mName) : iid.ToString());
  }
  if (do_QueryInterface<nsISystemAdapter>(aObject)) {
    // The order in which an operator looks for things.
    for (const char* key : {"sysPath", "label"}) out[key] = "";
    out["device"] = nullptr;
    out["connectors"] = Json::array();
  }
  const Json attributes = Value(aObject, 0);
  for (const auto& [key, value] : attributes.items()) out[key] = value;
  return out;
}

Json nsPicture::DescribeBinding(nsISystemApplicationProfileBinding* aBinding,
                                const std::vector<nsISystemAdapter*>& aAdapters) const {
  Json out = {{"profile", nullptr}, {"adapter", nullptr}};
  nsCOMPtr<nsISystemApplicationProfile> profile;
  nsString name;
  if (NS_SUCCEEDED(aBinding->GetApplicationProfile(profile.getter_AddRefs())) && profile &&
      NS_SUCCEEDED(profile->GetName(name)))
    out["profile"] = Text(name);
  nsCOMPtr<nsISystemAdapter> adapter;
  if (NS_SUCCEEDED(aBinding->GetAdapter(adapter.getter_AddRefs())))
    if (const auto at = std::ranges::find(aAdapters, adapter.get()); at != aAdapters.end())
      out["adapter"] = at - aAdapters.begin();
  // What a binding class offers of its own.
  const Json attributes = Value(aBinding, 0);
  for (const auto& [key, value] : attributes.items())
    if (key != "applicationProfile") out[key] = value;
  return out;
}

nsresult nsPicture::Read(nsISystemManager* aManager,
                         const nsCOMArray<nsISystemApplicationProfileBinding>& aBindings,
                         Json* aOut) const {
  nsCOMPtr<nsIArray> array;
  const nsresult rv = aManager->GetAdapters(array.getter_AddRefs());
  if (NS_FAILED(rv)) return rv;
  Json out = {{"adapters", Json::array()}, {"bindings", Json::array()}};
  nsCOMArray<nsISystemAdapter> kept;
  std::vector<nsISystemAdapter*> adapters;
  ForEach(array.get(), [&](nsISupports* aElement) {
    if (auto adapter = do_QueryInterface<nsISystemAdapter>(aElement)) {
      adapters.push_back(adapter.get());
      kept.push_back(std::move(adapter));
      out["adapters"].push_back(Describe(aElement));
    }
  });
  for (const auto& binding : aBindings)
    out["bindings"].push_back(DescribeBinding(binding.get(), adapters));
  *aOut = std::move(out);
  return NS_OK;
}

// ---- For people

namespace {

// "nsISystemAdapterStorage" -> "storage"
std::string Kind(const Json& aAdapter) {
  std::string kind = "adapter";
  constexpr std::string_view kPrefix = "nsISystemAdapter";
  const Json names = aAdapter.value("interfaces", Json::array());
  for (const Json& name : names)
    if (const auto text = name.get<std::string>();
        text.starts_with(kPrefix) && text.size() > kPrefix.size())
      kind = text.substr(kPrefix.size());
  return kind;
}

std::string Field(const Json& aObject, const char* aKey) {
  const auto found = aObject.find(aKey);
  if (found == aObject.end() || found->is_null()) return {};
  return found->is_string() ? found->get<std::string>() : found->dump();
}

std::string Join(const std::vector<std::string>& aTexts) {
  std::string out;
  for (const auto& text : aTexts)
    if (!text.empty()) out += (out.empty() ? "" : ", ") + text;
  return out;
}

// What an operator looks at first: the state of a link and its addresses.
std::string State(const Json& aAdapter) {
  const auto status = aAdapter.find("operStatus");
  if (status == aAdapter.end()) return {};
  std::vector<std::string> out = {*status == 1   ? "up"
                                  : *status == 2 ? "down"
                                                 : "status " + status->dump()};
  const Json addresses = aAdapter.value("unicastAddresses", Json::array());
  for (const Json& address : addresses)
    if (address.is_object())
      out.push_back(Field(address, "address") + "/" + Field(address, "prefixLength"));
  return Join(out);
}

std::vector<std::string> Row(size_t aIndex, const Json& aAdapter) {
  std::vector<std::string> connectors;
  const Json list = aAdapter.value("connectors", Json::array());
  for (const Json& connector : list) connectors.push_back(Field(connector, "name"));
  const Json device = aAdapter.value("device", Json());
  std::string name = Field(aAdapter, "label");
  if (name.empty()) name = Field(aAdapter, "sysPath");
  if (name.empty()) name = Field(aAdapter, "directory");
  return {
      std::to_string(aIndex), Kind(aAdapter), name, device.is_object() ? Field(device, "name") : "",
      Join(connectors),       State(aAdapter)};
}

void PrintTable(std::ostream& aOut, const std::vector<std::vector<std::string>>& aRows,
                bool aColours) {
  std::vector<size_t> widths(aRows[0].size());
  for (const auto& row : aRows)
    for (size_t i = 0; i < row.size(); ++i)
      widths[i] = std::max(widths[i], NS_ToUtf16(row[i]).size());
  for (const auto& row : aRows) {
    const bool head = aColours && &row == aRows.data();
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) {
      line += row[i];
      if (i + 1 < row.size()) line += std::string(widths[i] - NS_ToUtf16(row[i]).size() + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    aOut << (head ? "\033[1m" : "") << line << (head ? "\033[0m" : "") << '\n';
  }
}

}  // namespace

void nsPicture::Print(std::ostream& aOut, const Json& aPicture, bool aColours) {
  const Json& adapters = aPicture["adapters"];
  std::vector<std::vector<std::string>> rows = {
      {"#", "ADAPTER", "NAME", "DEVICE", "CONNECTOR", "STATE"}};
  for (size_t i = 0; i < adapters.size(); ++i) rows.push_back(Row(i, adapters[i]));
  if (rows.size() == 1)
    aOut << "no adapters\n";
  else
    PrintTable(aOut, rows, aColours);

  aOut << '\n';
  rows = {{"PROFILE", "ON", ""}};
  for (const Json& binding : aPicture["bindings"]) {
    const std::string on = Field(binding, "adapter");
    rows.push_back({Field(binding, "profile"), on.empty() ? "" : "#" + on,
                    on.empty() ? "" : Row(0, adapters[binding["adapter"].get<size_t>()])[2]});
  }
  if (rows.size() == 1)
    aOut << "no bindings\n";
  else
    PrintTable(aOut, rows, aColours);
}

void nsPicture::PrintChange(std::ostream& aOut, const Json& aChange) {
  aOut << Field(aChange, "event");
  if (const auto adapter = aChange.find("adapter"); adapter != aChange.end()) {
    const auto row = Row(0, *adapter);
    aOut << ": " << row[1] << ' ' << row[2];
  } else if (const auto binding = aChange.find("binding"); binding != aChange.end()) {
    aOut << ": " << Field(*binding, "profile");
  }
  aOut << std::endl;
}
