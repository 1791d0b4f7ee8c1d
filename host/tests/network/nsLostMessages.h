// Whether a receive overrun has happened.
#pragma once

#include <fstream>
#include <sstream>
#include <string>

/// How many messages the kernel has not given to sockets of the calling thread's network, since
/// nobody took those before: the ninth column of its table.
inline long NS_LostMessages() {
  std::ifstream table("/proc/thread-self/net/netlink");
  long sum = 0;
  std::string line, word;
  std::getline(table, line);
  while (std::getline(table, line)) {
    std::istringstream words(line);
    for (int i = 0; i < 9; ++i) words >> word;
    sum += std::stol(word);
  }
  return sum;
}
