#include "config/reader.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqmsg.h"
