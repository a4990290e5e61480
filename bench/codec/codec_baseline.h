// Hand-written json-c code doing what the codec does for two records, as a yardstick.
#ifndef CODEC_BASELINE_H
#define CODEC_BASELINE_H

#include "vks_multi_task_records.h"

// The enable list as JSON text in a malloc block: the same tree built and printed with json-c.
char* BaselineEncodeTasks(const _VW_TasksEnableList_S& list);

// The display flags merged from a JSON body with json-c: the same keys read with the same type
// rules. 0, or -1 when the body is not an object or a value is rejected.
int BaselineDecodeFilter(const char* body, VW_FACE_RECOGNITION_DL_METADATA_FILTER_PARA* record);

#endif
