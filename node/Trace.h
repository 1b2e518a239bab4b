#pragma once

/// Starts tracing; non-zero = failure. The number and the letters are the service's registration.
[[nodiscard]] int MBDebugInit(int reserved, const char* programName, const char* productTag,
                              int number, char first, char second, char third);
/// Fetch the two trace thresholds; non-zero = failure.
[[nodiscard]] int MBDebugGetMsgLogLevel(int* level);
[[nodiscard]] int MBDebugGetMsgDataLevel(int* level);
void MBDebugTerm();

/// Writes one message (`msgNumber` of the catalogue) or trace line (0). `level`: 1 always shown, 10
/// operator messages, 20 main flow, 30 detail, 40 function entry and exit, 204 the common log's
/// copy. `kind`: 1 error, 2 warning, 3 information. %1 to %5 in `format` take
/// `args[0..argCount-1]`, whose text is taken as text. Nothing is kept.
void __MBDebugPrintMsg(int msgNumber, int level, int kind, const char* sourceFile, int line,
                       const char* format, int argCount, const char* const* args, int reserved);
/// Writes a block of text to the data trace. Stores the count of bytes written in `*written` and
/// returns it too; a negative result is an error.
[[nodiscard]] short MBDebugPrintDat(const char* data, int length, int level, int kind,
                                    int* written);
void MBDebugAssertLog(const char* expression, const char* file, int line);

/// Registers the running service. 0, -85 if the service runs already, or another error.
[[nodiscard]] short MBStatInitialize(char first, char second, char third, char* reserved);
/// Reports a status; non-zero = failure.
[[nodiscard]] int __MBStatSetStatus(short status, char* file, int line, short& out);
void MBStatTerminate();

/// The host name in the framework's sense, at most size - 1 characters; non-zero = failure.
[[nodiscard]] int UtGetHostName(char* out, int size);
/// Compares without regard to case; 0 = equal.
[[nodiscard]] int xlb_stricmp(const char* a, const char* b);
