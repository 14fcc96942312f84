// The test support layer in one include: sandbox, builders, digest oracle,
// seam faults, power cuts, log capture and the lock holder.
#pragma once

#include "support/builders.h"
#include "support/io_faults.h"
#include "support/lock_holder.h"
#include "support/log_capture.h"
#include "support/oracle.h"
#include "support/power_loss.h"
#include "support/sandbox.h"
