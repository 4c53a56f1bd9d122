// The same reach by a relative path.
#include "../link/frmClient.h"
