// SPDX-License-Identifier: Apache-2.0
// Logging services of the access server: the debug log and the bilingual operation log.
#ifndef TALAPI_LOG_H
#define TALAPI_LOG_H

// Levels of VW_WriteLog.
enum VW_LOG_LEVEL_E : int {
    VW_LOG_TRACE = 0,
    VW_LOG_INFO = 1,
    VW_LOG_WARN = 2,
    VW_LOG_ERROR = 3,
};

// Debug flag: a debug line is written when its level is at least the flag. Callers read the
// global at each call and pass its value to VW_WriteLog. Set it before requests start.
enum VW_DEBUG_FLAG_E : int {
    VW_DEBUG_ALL = 0,
    VW_DEBUG_WARNINGS = 2,
    VW_DEBUG_FAILURES = 3,  // the default
    VW_DEBUG_OFF = 4,
};
extern VW_DEBUG_FLAG_E g_enDebugFlag;

// Module numbers (first argument of both services).
constexpr int VW_LOG_MODULE_TALAPI = 4;

// One debug line: time, level, module, caller's file (base name) and line, message.
// iSysErr non-zero appends strerror(iSysErr). Returns 0 when written or filtered, -1 on error.
int VW_WriteLog(int iModule, int iLevel, int iDebugFlag, int iSysErr, const char *pcFile, int iLine,
                const char *pcFormat, ...) __attribute__((format(printf, 7, 8)));

// One operation-log event in two languages; both formats take the same arguments.
// Log numbers: 2 the device's local log, 1 the log reported to the management platform.
int VW_WriteLanguageLog(int iLogNo, int iModule, const char *pcEnglish, const char *pcChinese, ...)
    __attribute__((format(printf, 3, 5), format(printf, 4, 5)));

// Host set-up. Both logs go to stderr until a file is named; null goes back to stderr.
// Returns 0, or -1 when the file cannot be opened (the log stays where it was).
int VW_SetDebugLogFile(const char *pcPath);
int VW_SetLanguageLogFile(const char *pcPath);

// Capture hooks. An installed sink receives every call unfiltered, formatted, instead of the
// log's file; null restores the file. Sinks may be called from several threads at once.
struct VW_DEBUG_LOG_S {
    int iModule;
    int iLevel;
    int iDebugFlag;
    int iSysErr;
    const char *pcFile;
    int iLine;
    const char *pcMessage;
};
struct VW_LANGUAGE_LOG_S {
    int iLogNo;
    int iModule;
    const char *pcEnglish;
    const char *pcChinese;
};
typedef void (*VW_DEBUG_LOG_SINK_PF)(const VW_DEBUG_LOG_S *pstLog);
typedef void (*VW_LANGUAGE_LOG_SINK_PF)(const VW_LANGUAGE_LOG_S *pstLog);
void VW_SetLogSinks(VW_DEBUG_LOG_SINK_PF pfDebug, VW_LANGUAGE_LOG_SINK_PF pfLanguage);

#endif
