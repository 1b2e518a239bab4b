#pragma once

#include <span>
#include <string_view>

/// A file of the console's page.
struct Asset {
  std::string_view name;
  std::string_view contentType;
  std::string_view tag;   ///< an ETag
  std::string_view gzip;  ///< its bytes, compressed
};

/// All that the program was built with, by their names. Its source is written by embed.py.
[[nodiscard]] std::span<const Asset> AllAssets();
