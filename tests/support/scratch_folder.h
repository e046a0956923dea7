#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

/// A new folder, which goes with all that is in it when the object ends.
struct ScratchFolder
{
  ScratchFolder()
  {
    EXPECT_NE(mkdtemp(path.data()), nullptr);
  }
  ~ScratchFolder()
  {
    std::filesystem::remove_all(path);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  std::string path = "/tmp/devcomm_test_XXXXXX";
};
