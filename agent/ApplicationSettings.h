#pragma once

/// The file of the monitored applications, by its plain path.
inline constexpr const char* kApplicationFile = "/opt/qmtrx/mond/agent/qmtapp";

/// The monitored applications as the configuration shows and changes them. Applications are counted
/// from 0 in the order of their definition, the processes of each from 0 to kProcesses - 1.
class ApplicationSettings {
 public:
  static constexpr int kProcesses = 15;
  enum Kind : int { kNone = 0, kProgram = 1, kCommandLine = 2 };

  virtual ~ApplicationSettings() = default;

  [[nodiscard]] virtual int GetCount() const = 0;
  /// Owned by the settings, at most 63 characters.
  [[nodiscard]] virtual const char* GetName(int application) const = 0;
  [[nodiscard]] virtual int GetKind(int application, int process) const = 0;
  /// Owned by the settings, at most 127 characters.
  [[nodiscard]] virtual const char* GetPattern(int application, int process) const = 0;
  [[nodiscard]] virtual int GetRangeMin(int application, int process) const = 0;
  [[nodiscard]] virtual int GetRangeMax(int application, int process) const = 0;

  /// 1 if an application without conditions was added; 0 if the list is full or knows the name.
  [[nodiscard]] virtual int add(const char* name) = 0;
  /// 1 if it was removed; 0 if there is no such application.
  [[nodiscard]] virtual int remove(int index) = 0;
  virtual void SetKind(int application, int process, Kind kind) = 0;
  /// Cuts the pattern to its limit.
  virtual void SetPattern(int application, int process, const char* pattern) = 0;
  /// Takes "5", "5-7" or "5,7"; an empty text leaves the range as it is. 0 for any other text.
  [[nodiscard]] virtual int SetRange(int application, int process, const char* text) = 0;

  /// The file is named by its plain path, below the product root. 1 on success.
  [[nodiscard]] virtual int read(const char* path) = 0;
  [[nodiscard]] virtual int write(const char* path) = 0;
};

/// The list of an agent that monitors no applications: empty, refuses every addition and leaves the
/// file alone.
class NoApplications : public ApplicationSettings {
 public:
  [[nodiscard]] int GetCount() const override { return 0; }
  [[nodiscard]] const char* GetName(int) const override { return ""; }
  [[nodiscard]] int GetKind(int, int) const override { return kNone; }
  [[nodiscard]] const char* GetPattern(int, int) const override { return ""; }
  [[nodiscard]] int GetRangeMin(int, int) const override { return 0; }
  [[nodiscard]] int GetRangeMax(int, int) const override { return 0; }
  [[nodiscard]] int add(const char*) override { return 0; }
  [[nodiscard]] int remove(int) override { return 0; }
  void SetKind(int, int, Kind) override {}
  void SetPattern(int, int, const char*) override {}
  [[nodiscard]] int SetRange(int, int, const char*) override { return 0; }
  [[nodiscard]] int read(const char*) override { return 1; }
  [[nodiscard]] int write(const char*) override { return 1; }
};
