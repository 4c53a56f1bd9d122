// The simulated unit is a program, not a library: its protocol sources are
// compiled into this test program here. The transports, the JPEG encoder and
// main stay out; what is tested runs without sockets.
#include "../../tools/camrelay-unit/avi.cpp"
#include "../../tools/camrelay-unit/commands.cpp"
#include "../../tools/camrelay-unit/demo_tables.cpp"
#include "../../tools/camrelay-unit/faults.cpp"
#include "../../tools/camrelay-unit/folder_content.cpp"
#include "../../tools/camrelay-unit/frames.cpp"
#include "../../tools/camrelay-unit/log.cpp"
#include "../../tools/camrelay-unit/message.cpp"
#include "../../tools/camrelay-unit/playback.cpp"
#include "../../tools/camrelay-unit/session.cpp"
#include "../../tools/camrelay-unit/transfers.cpp"
#include "../../tools/camrelay-unit/unscramble.cpp"
#include "../../tools/camrelay-unit/uploads.cpp"
