// Result codes shared by the host framework and its plug-in modules.
#ifndef VW_RESULT_H
#define VW_RESULT_H

// Every handler and round trip reports its outcome as one of these, carried as int.
// The service's own result codes pass through unchanged, so the type is open-ended.
typedef int VW_RESULT_TYPE;
// The service's name for the same type, as carried in reply header item 0xB001.
typedef int RESULT_TYPE_E;

enum {
    VW_SUCCESS = 0,
    VW_FAILED = -1,
    VW_INVALID_PARAM = 1,
    VW_PARAM_ERROR = 4,        // required query parameter missing or body not decodable
    VW_MEMORY_ERROR = 18,      // record or buffer not allocated, or record of the wrong length
    VW_SERVICE_NOT_EXIST = 31  // the service file does not exist
};

#endif
