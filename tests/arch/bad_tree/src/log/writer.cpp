#include "config/reader.h"
#include "zqsys/zqmsg.h"
#include "zqsys/zqerr.h"
