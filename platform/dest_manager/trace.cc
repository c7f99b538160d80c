#include "dest_manager/trace.h"

zlog_category_t* g_trace = nullptr;
