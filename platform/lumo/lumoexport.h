#pragma once

#define LUMO_SDK_EXPORT __attribute__((visibility("default")))
