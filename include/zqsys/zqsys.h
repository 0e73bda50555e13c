/* ZqSys: every public header at once. */
#ifndef ZQSYS_ZQSYS_H
#define ZQSYS_ZQSYS_H

#include "zqsys/zqbcd.h"
#include "zqsys/zqdefs.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqini.h"
#include "zqsys/zqlog.h"
#include "zqsys/zqmq.h"
#include "zqsys/zqmsg.h"
#include "zqsys/zqprintf.h"
#include "zqsys/zqrecord.h"
#include "zqsys/zqscheme.h"
#include "zqsys/zqstat.h"
#include "zqsys/zqstream.h"
#include "zqsys/zqstruct.h"
#include "zqsys/zqtime.h"
#include "zqsys/zqtypes.h"

#endif /* ZQSYS_ZQSYS_H */
