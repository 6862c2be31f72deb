#pragma once

#define RFMSG_EXPORT __attribute__((visibility("default")))
