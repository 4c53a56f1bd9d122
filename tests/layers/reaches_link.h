// A store file that reaches up into the link: the layer check must refuse it.
#include "link/frmClient.h"
