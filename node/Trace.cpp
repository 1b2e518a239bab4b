#include "node/Trace.h"

#include <strings.h>

#include "node/NodeLayer.h"

int MBDebugInit(int reserved, const char* programName, const char* productTag, int number,
                char first, char second, char third) {
  return ActiveNodeLayer().DebugInit(
      {reserved, programName, productTag, number, {first, second, third}});
}
int MBDebugGetMsgLogLevel(int* level) { return ActiveNodeLayer().MsgLogLevel(level); }
int MBDebugGetMsgDataLevel(int* level) { return ActiveNodeLayer().MsgDataLevel(level); }
void MBDebugTerm() { ActiveNodeLayer().DebugTerm(); }

void __MBDebugPrintMsg(int msgNumber, int level, int kind, const char* sourceFile, int line,
                       const char* format, int argCount, const char* const* args, int) {
  ActiveNodeLayer().PrintMsg({msgNumber, level, kind, sourceFile, line, format, argCount, args});
}

short MBDebugPrintDat(const char* data, int length, int level, int kind, int* written) {
  return ActiveNodeLayer().PrintDat(data, length, level, kind, written);
}
void MBDebugAssertLog(const char* expression, const char* file, int line) {
  ActiveNodeLayer().AssertLog(expression, file, line);
}

short MBStatInitialize(char first, char second, char third, char*) {
  return ActiveNodeLayer().StatInitialize(first, second, third);
}
int __MBStatSetStatus(short status, char* file, int line, short& out) {
  return ActiveNodeLayer().StatSetStatus(status, file, line, out);
}
void MBStatTerminate() { ActiveNodeLayer().StatTerminate(); }
int UtGetHostName(char* out, int size) { return ActiveNodeLayer().HostName(out, size); }
int xlb_stricmp(const char* a, const char* b) { return ::strcasecmp(a, b); }
