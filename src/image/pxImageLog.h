// Logging conventions of the library: an error is logged once where it is found, and every function that
// passes a failure up logs a trace, so one failure leaves a chain from its source to the exported function.
#pragma once

#include <cstdint>

#include "pxEnv.h"

// Error codes.
constexpr uint32_t PX_ERR_INVALID_ARGUMENT = 0xC43D0003u;
constexpr uint32_t PX_ERR_FILE_IO = 0xC43D0031u;
constexpr uint32_t PX_ERR_SCRATCH_ALLOC = 0xC43D0310u;
constexpr uint32_t PX_ERR_TYPE_NOT_SUPPORTED = 0xC41A0004u;

// Trace of a failure passed up from a callee (level 1, no message).
#define PX_TRACE(module) writeLogF(1, __LINE__, (module), __DATE__, nullptr)
// Error found here: level 5 with code and printf-style message.
#define PX_ERROR(module, code, ...) writeLogI(5, __LINE__, (module), __DATE__, (code), __VA_ARGS__)
// Warning that does not stop the operation, at the given level.
#define PX_WARN(level, module, ...) writeLogF((level), __LINE__, (module), __DATE__, __VA_ARGS__)
// Error reported by code through the environment's catalogue.
#define PX_SEND_ERROR(module, code, ...) sendError(5, __LINE__, (module), __DATE__, (code), ##__VA_ARGS__)
