// A directory for the files that a target works on, gone when the process ends in good order.
#pragma once

#include <filesystem>
#include <fstream>
#include <random>
#include <string>

struct ScratchDirectory {
  ScratchDirectory() { std::filesystem::create_directory(path); }
  ~ScratchDirectory() { std::filesystem::remove_all(path); }

  // In memory, unless TMPDIR says where.
  const bool isTold = std::getenv("TMPDIR") != nullptr || !std::filesystem::exists("/dev/shm");
  const std::filesystem::path path =
      (isTold ? std::filesystem::temp_directory_path() : std::filesystem::path("/dev/shm")) /
      ("fuzz-" + std::to_string(std::random_device{}()));
  const std::string registry = (path / "r").string();
};

inline std::string contentOf(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

inline void writeContent(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}
