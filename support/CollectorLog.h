#pragma once

#include <cstdio>
#include <memory>
#include <string>

/// COLLECTOR.LOG, the optional detail log of the collector, in the working directory.
class CollectorLog {
 public:
  /// The shared instance, made on first use: opens the file (mode 0664) if `g_collectorLogOn`.
  static CollectorLog& Instance();

  /// Appends one line, "Mmm dd hh:mm:ss : text" cut to 4096 characters, if `g_collectorLogOn`; the
  /// format's place may hold %-conversions of printf, data go through the arguments only. At 100
  /// MiB the writing goes on in COLLECTOR.LOG.n.
  void Log(const char* format, ...) __attribute__((format(printf, 2, 3)));

 private:
  CollectorLog();
  void Rotate();

  struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  std::unique_ptr<std::FILE, Close> m_file;
};
