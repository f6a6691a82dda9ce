#include "listing.h"

#include <cstdio>

namespace tool {

void printJson(const Json& value) {
  const std::string text = value.dump(2, ' ', false, Json::error_handler_t::replace);
  std::printf("%s\n", text.c_str());
}

}  // namespace tool
