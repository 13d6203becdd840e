/* Everything that libvncommon offers. */
#ifndef VNCOMMON_VNCOMMON_H
#define VNCOMMON_VNCOMMON_H

#if __has_include(<vncommon/failure.h>)
#include <vncommon/failure.h>
#endif
#if __has_include(<vncommon/threads.h>)
#include <vncommon/threads.h>
#endif
#if __has_include(<vncommon/sockets.h>)
#include <vncommon/sockets.h>
#endif
#if __has_include(<vncommon/vector.h>)
#include <vncommon/vector.h>
#endif
#if __has_include(<vncommon/hashmap.h>)
#include <vncommon/hashmap.h>
#endif
#if __has_include(<vncommon/queue.h>)
#include <vncommon/queue.h>
#endif
#if __has_include(<vncommon/buffers.h>)
#include <vncommon/buffers.h>
#endif
#if __has_include(<vncommon/strings.h>)
#include <vncommon/strings.h>
#endif
#if __has_include(<vncommon/utf8.h>)
#include <vncommon/utf8.h>
#endif
#if __has_include(<vncommon/numbers.h>)
#include <vncommon/numbers.h>
#endif
#if __has_include(<vncommon/discovery.h>)
#include <vncommon/discovery.h>
#endif
#if __has_include(<vncommon/platform.h>)
#include <vncommon/platform.h>
#endif
#if __has_include(<vncommon/process.h>)
#include <vncommon/process.h>
#endif
#if __has_include(<vncommon/maths.h>)
#include <vncommon/maths.h>
#endif
#if __has_include(<vncommon/config_file.h>)
#include <vncommon/config_file.h>
#endif
#if __has_include(<vncommon/file_logger.h>)
#include <vncommon/file_logger.h>
#endif
#if __has_include(<vncommon/log.h>)
#include <vncommon/log.h>
#endif
#if __has_include(<vncommon/event_writer.h>)
#include <vncommon/event_writer.h>
#endif
#if __has_include(<vncommon/timestamp_set.h>)
#include <vncommon/timestamp_set.h>
#endif

#endif
