// See automation_base.idl: the real declarations of IUnknown and IDispatch.
#pragma once
#include <oaidl.h>
