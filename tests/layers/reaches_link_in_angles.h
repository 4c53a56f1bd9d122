// The same reach in angle brackets; a library's header beside it is fine.
#include <boost/asio.hpp>
#include <link/frmClient.h>
