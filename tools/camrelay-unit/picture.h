// What the simulated cameras see: a gradient in the camera's own colour with
// "CAM <n>" written large, and a bar that moves from frame to frame of a clip,
// so a person opening an image knows at once which camera and frame it is.
#pragma once

#include "jpeg.h"

namespace camrelay::unit {

Picture CameraPicture(int camera, int frame, int width, int height);

}  // namespace camrelay::unit
