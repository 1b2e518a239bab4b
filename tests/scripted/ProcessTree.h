#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "support/HostPaths.h"

/// Host trees that a test or a benchmark makes for itself.
namespace process_tree {

/// What the files of one process are made of.
struct ProcessFigures {
  int pid = 0;
  int ppid = 1;
  int uid = 0;
  char state = 'S';
  long userTicks = 0;
  long systemTicks = 0;
  long startTicks = 0;
  long sizePages = 0;  ///< 0 makes a process of the kernel: no memory figures, no command line
  long residentPages = 0;
  std::string name;
  std::string commandLine;  ///< arguments parted by blanks
};

/// A host root in a directory of its own. It is the host root in force until the object goes, and
/// the directory with it.
class HostTree {
 public:
  HostTree() {
    std::string pattern = (std::filesystem::temp_directory_path() / "host-tree-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
      throw std::runtime_error("cannot make " + pattern);
    }
    m_root = pattern;
    std::filesystem::create_directory(m_root / "proc");
    SetHostRoot(m_root.string());
  }
  ~HostTree() {
    SetHostRoot("");
    std::error_code ignored;
    std::filesystem::remove_all(m_root, ignored);
  }
  HostTree(const HostTree&) = delete;
  HostTree& operator=(const HostTree&) = delete;

  [[nodiscard]] std::filesystem::path Path(std::string_view absolute) const {
    return m_root / absolute.substr(1);
  }
  void Write(std::string_view absolute, std::string_view text) const {
    std::filesystem::create_directories(Path(absolute).parent_path());
    std::ofstream(Path(absolute), std::ios::binary) << text;
  }
  /// Writes files below a folder, one line each: "NAME=TEXT|NAME=TEXT".
  void WriteAll(const std::string& folder, const std::string& files) const {
    std::istringstream in(files);
    for (std::string file; std::getline(in, file, '|');) {
      const std::size_t mark = file.find('=');
      Write(folder + '/' + file.substr(0, mark), file.substr(mark + 1) + '\n');
    }
  }
  void Link(std::string_view absolute, const std::string& target) const {
    std::filesystem::create_directories(Path(absolute).parent_path());
    std::filesystem::create_symlink(target, Path(absolute));
  }
  void Remove(std::string_view absolute) const { std::filesystem::remove_all(Path(absolute)); }
  /// Copies one of the trees of tests/fixtures, to change it then.
  void CopyFrom(const std::filesystem::path& fixture) const {
    std::filesystem::copy(fixture, m_root,
                          std::filesystem::copy_options::recursive |
                              std::filesystem::copy_options::copy_symlinks |
                              std::filesystem::copy_options::overwrite_existing);
  }

  /// Writes the files of one process as the kernel of today shapes them.
  void AddProcess(const ProcessFigures& process) const {
    const std::string folder = "/proc/" + std::to_string(process.pid);
    Write(folder + "/stat", StatLine(process));
    std::ostringstream statm;
    statm << process.sizePages << ' ' << process.residentPages << ' ' << process.residentPages / 2
          << " 75 0 1033 0\n";
    Write(folder + "/statm", statm.str());
    Write(folder + "/status", StatusText(process));
    std::string arguments = process.commandLine;
    for (char& letter : arguments) {
      letter = letter == ' ' ? '\0' : letter;
    }
    if (!arguments.empty()) {
      arguments.push_back('\0');
    }
    Write(folder + "/cmdline", arguments);
    if (process.sizePages != 0) {
      Link(folder + "/cwd", "/");
      Link(folder + "/root", "/");
    }
  }

  /// Adds the processes of a manifest; tests/fixtures/manifests tells the form. Returns how many.
  int AddProcesses(const std::filesystem::path& manifest) const {
    std::ifstream in(manifest);
    int made = 0;
    for (std::string line; std::getline(in, line);) {
      std::istringstream row(line);
      int count = 0;
      ProcessFigures process;
      if (line.starts_with('#') ||
          !(row >> count >> process.pid >> process.ppid >> process.uid >> process.state >>
            process.userTicks >> process.systemTicks >> process.startTicks >> process.sizePages >>
            process.residentPages >> process.name)) {
        continue;
      }
      std::getline(row >> std::ws, process.commandLine);
      for (int index = 0; index < count; ++index, ++process.pid, ++made) {
        AddProcess(process);
      }
    }
    return made;
  }

 private:
  static std::string StatLine(const ProcessFigures& process) {
    std::ostringstream line;
    line << process.pid << " (" << process.name << ") " << process.state << ' ' << process.ppid
         << ' ' << process.pid << ' ' << process.pid << " 0 -1 4194560 1012 0 14 0 "
         << process.userTicks << ' ' << process.systemTicks << " 0 0 20 0 1 0 "
         << process.startTicks << ' ' << process.sizePages * 4096 << ' ' << process.residentPages
         << " 18446744073709551615 94230188040192 94230188998237 140722480121344 0 0 0 671173123"
         << " 4096 1260 0 0 0 17 2 0 0 12 0 0 94230189302832 94230189610016 94230199123968"
         << " 140722480127741 140722480127752 140722480127752 140722480127981 0\n";
    return line.str();
  }

  static std::string StatusText(const ProcessFigures& process) {
    std::ostringstream text;
    text << "Name:\t" << process.name << "\nUmask:\t0022\nState:\t" << process.state << "\nTgid:\t"
         << process.pid << "\nNgid:\t0\nPid:\t" << process.pid << "\nPPid:\t" << process.ppid
         << "\nTracerPid:\t0\nUid:\t" << process.uid << '\t' << process.uid << '\t' << process.uid
         << '\t' << process.uid << "\nGid:\t" << process.uid << '\t' << process.uid << '\t'
         << process.uid << '\t' << process.uid << "\nFDSize:\t64\nGroups:\t \n";
    if (process.sizePages != 0) {
      text << "VmPeak:\t" << process.sizePages * 4 << " kB\nVmSize:\t" << process.sizePages * 4
           << " kB\nVmLck:\t       0 kB\nVmRSS:\t" << process.residentPages * 4
           << " kB\nVmData:\t   18712 kB\nVmStk:\t     132 kB\nVmExe:\t     936 kB\n";
    }
    text << "Threads:\t1\nSigQ:\t0/31204\nSigPnd:\t0000000000000000\nCpus_allowed:\tf\n";
    return text.str();
  }

  std::filesystem::path m_root;
};

}  // namespace process_tree
