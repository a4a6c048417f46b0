#include "archiver/toolname.h"
