#include "nsURLParts.h"

#include <prnetdb.h>

#include <algorithm>
#include <charconv>

#include "nsAscii.h"
#include "nsCore.h"

namespace {

bool IsAlpha(char aChar) {
  return (aChar >= 'a' && aChar <= 'z') || (aChar >= 'A' && aChar <= 'Z');
}
bool IsDigit(char aChar) { return aChar >= '0' && aChar <= '9'; }

template <class Keep>
std::string Escape(std::string_view aText, Keep aKeep) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string escaped;
  for (const char c : aText) {
    if (aKeep(c)) {
      escaped += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      escaped += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return escaped;
}

/// Of a text that is a URL already: only what can't stand there. Escapes that are there stay as
/// they are.
std::string EscapeForbidden(std::string_view aText) {
  return Escape(aText, [](char aChar) {
    return aChar > 0x20 && aChar < 0x7F &&
           std::string_view("\"<>`").find(aChar) == std::string_view::npos;
  });
}

bool IsHost(const std::string& aHost) {
  if (aHost.starts_with('[')) {
    PRNetAddr address;
    return aHost.ends_with(']') && aHost.find_first_of(std::string_view("%\0", 2)) == aHost.npos &&
           PR_StringToNetAddr(aHost.substr(1, aHost.size() - 2).c_str(), &address) == PR_SUCCESS &&
           PR_NetAddrFamily(&address) == PR_AF_INET6;
  }
  return std::none_of(aHost.begin(), aHost.end(), [](char aChar) {
    return static_cast<unsigned char>(aChar) <= 0x20 || aChar == 0x7F ||
           std::string_view("\"<>[]\\^`{|}%/?#@:").find(aChar) != std::string_view::npos;
  });
}

/// "/a/./b/../c" is "/a/c"; ".." at the root stays there.
std::string WithoutDots(std::string_view aPath) {
  std::string out;
  while (!aPath.empty()) {
    const size_t end = std::min(aPath.find('/', 1), aPath.size());
    const std::string_view segment = aPath.substr(0, end);
    aPath.remove_prefix(end);
    if (segment == "/..") out.erase(std::min(out.rfind('/'), out.size()));
    if (segment != "/." && segment != "/..")
      out += segment;
    else if (aPath.empty())
      out += '/';
  }
  return out;
}

}  // namespace

int32_t NS_DefaultPort(std::string_view aScheme) {
  struct Port {
    std::string_view mScheme;
    int32_t mPort;
  };
  static constexpr Port kPorts[] = {{"http", 80}, {"https", 443}, {"ftp", 21}};
  for (const Port& each : kPorts)
    if (each.mScheme == aScheme) return each.mPort;
  return -1;
}

nsresult NS_ExtractScheme(std::string_view aSpec, std::string* aScheme) {
  while (!aSpec.empty() && static_cast<unsigned char>(aSpec.front()) <= 0x20)
    aSpec.remove_prefix(1);
  const size_t colon = aSpec.find(':');
  if (colon == aSpec.npos || colon == 0 || !IsAlpha(aSpec.front())) return NS_ERROR_MALFORMED_URI;
  const std::string_view scheme = aSpec.substr(0, colon);
  const bool valid = std::all_of(scheme.begin(), scheme.end(), [](char aChar) {
    return IsAlpha(aChar) || IsDigit(aChar) || aChar == '+' || aChar == '-' || aChar == '.';
  });
  if (!valid) return NS_ERROR_MALFORMED_URI;
  *aScheme = NS_ToLowerAscii(scheme);
  return NS_OK;
}

std::string NS_EscapePath(std::string_view aPath) {
  return Escape(aPath, [](char aChar) {
    return IsAlpha(aChar) || IsDigit(aChar) ||
           std::string_view("/-_.~!$&'()*+,=:@").find(aChar) != std::string_view::npos;
  });
}

std::string NS_EscapeUserInfo(std::string_view aText) {
  return Escape(aText, [](char aChar) {
    return IsAlpha(aChar) || IsDigit(aChar) ||
           std::string_view("-_.~!$&'()*+,;=%").find(aChar) != std::string_view::npos;
  });
}

std::string NS_Unescape(std::string_view aText) {
  std::string text;
  for (size_t i = 0; i < aText.size(); ++i) {
    const int high =
        i + 2 < aText.size() && aText[i] == '%' ? vorel::detail::HexDigit(aText[i + 1]) : -1;
    const int low = high >= 0 ? vorel::detail::HexDigit(aText[i + 2]) : -1;
    if (low >= 0) i += 2;
    text += low >= 0 ? static_cast<char>(high * 16 + low) : aText[i];
  }
  return text;
}

nsresult nsURLParts::ParseHost(std::string_view aHost) {
  std::string host = NS_ToLowerAscii(aHost);
  if (!IsHost(host) || IsFile() || (host.empty() && NS_DefaultPort(mScheme) != -1))
    return NS_ERROR_MALFORMED_URI;
  mHost = std::move(host);
  return NS_OK;
}

nsresult nsURLParts::ParseAuthority(std::string_view aAuthority) {
  nsURLParts parts = *this;
  parts.mUser.clear();
  parts.mPassword.reset();
  parts.mPort = -1;
  if (const size_t at = aAuthority.rfind('@'); at != aAuthority.npos) {
    const std::string_view userPass = aAuthority.substr(0, at);
    const size_t colon = userPass.find(':');
    parts.mUser = NS_EscapeUserInfo(userPass.substr(0, colon));
    if (colon != userPass.npos) parts.mPassword = NS_EscapeUserInfo(userPass.substr(colon + 1));
    aAuthority.remove_prefix(at + 1);
  }
  const size_t bracket = aAuthority.starts_with('[') ? aAuthority.find(']') : 0;
  if (bracket == aAuthority.npos) return NS_ERROR_MALFORMED_URI;
  const size_t colon = aAuthority.find(':', bracket);
  if (const nsresult rv = parts.ParseHost(aAuthority.substr(0, colon)); NS_FAILED(rv)) return rv;
  if (colon != aAuthority.npos && colon + 1 < aAuthority.size()) {
    const std::string_view port = aAuthority.substr(colon + 1);
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), parts.mPort);
    if (error != std::errc() || end != port.data() + port.size() || parts.mPort < 0 ||
        parts.mPort > 65535)
      return NS_ERROR_MALFORMED_URI;
  }
  if (parts.mPort == NS_DefaultPort(mScheme)) parts.mPort = -1;
  *this = std::move(parts);
  return NS_OK;
}

nsresult nsURLParts::ParsePath(std::string_view aPath) {
  mRef.reset();
  mQuery.reset();
  if (const size_t hash = aPath.find('#'); hash != aPath.npos) {
    mRef = EscapeForbidden(aPath.substr(hash + 1));
    aPath = aPath.substr(0, hash);
  }
  if (const size_t question = aPath.find('?'); question != aPath.npos) {
    mQuery = EscapeForbidden(aPath.substr(question + 1));
    aPath = aPath.substr(0, question);
  }
  std::string path = EscapeForbidden(aPath);
  if (!path.starts_with('/')) path.insert(0, "/");
  mPath = WithoutDots(path);
  return NS_OK;
}

nsresult nsURLParts::Parse(std::string_view aSpec) {
  std::string text;
  for (const char c : aSpec)
    if (c != '\n' && c != '\r' && c != '\t') text += c;
  const auto isSpace = [](char aChar) { return static_cast<unsigned char>(aChar) <= 0x20; };
  while (!text.empty() && isSpace(text.back())) text.pop_back();
  text.erase(text.begin(), std::find_if_not(text.begin(), text.end(), isSpace));

  nsURLParts parts;
  nsresult rv = NS_ExtractScheme(text, &parts.mScheme);
  if (NS_FAILED(rv)) return rv;
  std::string_view rest = std::string_view(text).substr(parts.mScheme.size() + 1);
  if (rest.starts_with("//")) {
    rest.remove_prefix(2);
    const size_t end = std::min(rest.find_first_of("/?#"), rest.size());
    // Files are those of this machine, whatever host is named.
    if (!parts.IsFile()) {
      rv = parts.ParseAuthority(rest.substr(0, end));
      if (NS_FAILED(rv)) return rv;
    }
    rest.remove_prefix(end);
  } else if (!parts.IsFile()) {
    return NS_ERROR_MALFORMED_URI;
  }
  rv = parts.ParsePath(rest);
  if (NS_SUCCEEDED(rv)) *this = std::move(parts);
  return rv;
}

nsresult nsURLParts::Resolve(std::string_view aRelative, nsURLParts* aResult) const {
  std::string scheme;
  if (NS_SUCCEEDED(NS_ExtractScheme(aRelative, &scheme))) return aResult->Parse(aRelative);
  nsURLParts parts = *this;
  if (aRelative.starts_with("//")) return aResult->Parse(mScheme + ":" + std::string(aRelative));
  nsresult rv = NS_OK;
  if (aRelative.empty()) {
    parts.mRef.reset();
  } else if (aRelative.front() == '#') {
    parts.mRef = EscapeForbidden(aRelative.substr(1));
  } else if (aRelative.front() == '?') {
    rv = parts.ParsePath(mPath + std::string(aRelative));
  } else if (aRelative.front() == '/') {
    rv = parts.ParsePath(aRelative);
  } else {
    rv = parts.ParsePath(mPath.substr(0, NameOffset()) + std::string(aRelative));
  }
  if (NS_SUCCEEDED(rv)) *aResult = std::move(parts);
  return rv;
}

std::string nsURLParts::UserPass() const { return mPassword ? mUser + ":" + *mPassword : mUser; }
std::string nsURLParts::HostPort() const {
  return mPort == -1 ? mHost : mHost + ":" + std::to_string(mPort);
}

std::string nsURLParts::PrePath() const {
  const std::string userPass = UserPass();
  return mScheme + "://" + (userPass.empty() ? "" : userPass + "@") + HostPort();
}

std::string nsURLParts::PathQuery() const { return mQuery ? mPath + "?" + *mQuery : mPath; }
std::string nsURLParts::Spec() const { return PrePath() + PathQuery() + (mRef ? "#" + *mRef : ""); }
