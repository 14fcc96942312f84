// What the other subsystems use of the library frame.
#pragma once

#include "frame/bounded_read.h"
#include "frame/hex.h"
#include "frame/io.h"
#include "frame/locations.h"
#include "frame/locks.h"
#include "frame/log.h"
#include "frame/module_list.h"
#include "frame/name_check.h"
#include "frame/path.h"
#include "frame/privilege_target.h"
#include "frame/raii.h"
#include "frame/sha256.h"
#include "frame/shell.h"
