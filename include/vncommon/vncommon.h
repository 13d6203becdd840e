/** @file
 * Everything that libvncommon offers. */
#ifndef VNCOMMON_VNCOMMON_H
#define VNCOMMON_VNCOMMON_H

/* From the foundations up, which the formatter would sort. */
/* clang-format off */
#include <vncommon/version.h>
#include <vncommon/failure.h>
#include <vncommon/threads.h>
#include <vncommon/sockets.h>
#include <vncommon/vector.h>
#include <vncommon/hashmap.h>
#include <vncommon/queue.h>
#include <vncommon/buffers.h>
#include <vncommon/strings.h>
#include <vncommon/utf8.h>
#include <vncommon/numbers.h>
#include <vncommon/discovery.h>
#include <vncommon/platform.h>
#include <vncommon/process.h>
#include <vncommon/maths.h>
#include <vncommon/config_file.h>
#include <vncommon/file_logger.h>
#include <vncommon/log.h>
#include <vncommon/event_writer.h>
#include <vncommon/event_reader.h>
#include <vncommon/timestamp_set.h>
/* clang-format on */

#endif
