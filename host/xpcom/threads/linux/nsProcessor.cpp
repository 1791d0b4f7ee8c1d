#include "nsProcessor.h"

#include <sched.h>

int NS_CurrentProcessor() { return sched_getcpu(); }
