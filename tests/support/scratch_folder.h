#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

/// A new folder, which goes with all that is in it when the object ends.
struct ScratchFolder
{
  explicit ScratchFolder(const char* parent = "/tmp") : path(parent + std::string("/devcomm_test_XXXXXX"))
  {
    EXPECT_NE(mkdtemp(path.data()), nullptr);
  }
  ~ScratchFolder()
  {
    std::filesystem::remove_all(path);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  std::string path;
};

/// All bytes of a file; none when there is no such file.
inline std::string contents(const std::string& path)
{
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}
