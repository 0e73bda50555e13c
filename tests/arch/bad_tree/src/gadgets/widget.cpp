#include "os/file.h"
