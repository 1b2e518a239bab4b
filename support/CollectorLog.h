#pragma once

#include "support/TextFile.h"

/// COLLECTOR.LOG, the optional detail log of the collector, in the working directory.
class CollectorLog {
 public:
  /// The shared instance, made on first use: opens the file (mode 0664) if `g_collectorLogOn`.
  static CollectorLog& Instance();

  /// As Instance() makes it, for an owner of its own.
  CollectorLog();

  /// Appends one line, "Mmm dd hh:mm:ss : text" cut to 4096 characters, if `g_collectorLogOn`; a
  /// line end is added where the text has none. The format is printf's, data go through the
  /// arguments only. At 100 MiB the writing goes on in COLLECTOR.LOG.n, n counted from 1.
  void Log(const char* format, ...) __attribute__((format(printf, 2, 3)));

 private:
  void Rotate();

  TextFilePtr m_file;
  int m_rotations = 0;
};
