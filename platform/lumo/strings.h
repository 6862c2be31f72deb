#pragma once
// The host string library.

#include <string>

#include "lumo/lumoexport.h"

LUMO_SDK_EXPORT std::string from_int(int value);
// printf-style conversion: format 'g', 'f' or 'e' with the given precision, C locale.
LUMO_SDK_EXPORT std::string from_double(double value, char format = 'g', int precision = 6);
// <0, 0 or >0 as strcmp, comparing ASCII letters without regard to case.
LUMO_SDK_EXPORT int compare_ignore_case(const std::string& left, const std::string& right);
