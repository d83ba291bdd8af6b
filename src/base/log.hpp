// The five levels of the system's log. Each macro fixes only the level: the whole message stays one literal at
// the call, so that it can be found by searching and its arguments are checked against it.
#pragma once

#include <aoi/aoi.h>

#define KEL_LOG_ERROR(...) AoLog(2, __VA_ARGS__)
#define KEL_LOG_WARNING(...) AoLog(3, __VA_ARGS__)
#define KEL_LOG_NOTICE(...) AoLog(5, __VA_ARGS__)
#define KEL_LOG_INFO(...) AoLog(6, __VA_ARGS__)
#define KEL_LOG_TRACE(...) AoLog(7, __VA_ARGS__)
