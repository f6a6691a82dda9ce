// stream_steps COUNT writes and reads lines with so many streams of the runtime library that this
// program is built with, and prints how many lines were taken and refused.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "genreg.h"

int main(int words, char** word) {
  const int count = words == 2 ? std::atoi(word[1]) : 0;
  int taken = 0;
  int refused = 0;
  std::vector<std::FILE*> streams;
  for (int i = 0; i < count; ++i) {
    std::FILE* const stream = std::fopen(("lines" + std::to_string(i)).c_str(), "w+b");
    if (stream == nullptr) return 1;
    streams.push_back(stream);
    char text[] = "abc";
    const unsigned int wrote = GenRegWriteLine(text, 3, stream);
    std::fputs("abc\ndef\n", stream);
    for (int line = 0; line < 2; ++line) {  // before there is a buffer to read from, and with it
      if (line == 0) std::rewind(stream);
      char raw[64];
      char whole[64] = "";
      unsigned int code = 0;
      char* const got = GenRegReadLine(raw, whole, sizeof raw, stream, &code, true);
      const bool isRead =
          got != nullptr && std::string(whole) == (line == 0 ? "abcabc\n" : "def\n");
      const bool isRefused = got == nullptr && code == GENREG_RC_BAD_ARGUMENT;
      taken += isRead && wrote == 0;
      refused += isRefused && wrote == GENREG_RC_BAD_ARGUMENT;
      if (!isRead) (void)std::fgetc(stream);
    }
  }
  for (int i = 0; i < count; ++i) {
    std::fclose(streams[static_cast<std::size_t>(i)]);
    std::remove(("lines" + std::to_string(i)).c_str());
  }
  std::printf("taken %d, refused %d\n", taken, refused);
}
