#include "ZnUtil/ZnSocketConfig.h"

ZnSocketConfig::ZnSocketConfig() = default;

ZnSocketConfig::ZnSocketConfig(const ZnSocketConfig& other) = default;

ZnSocketConfig& ZnSocketConfig::operator=(const ZnSocketConfig& other) = default;

ZnSocketConfig::~ZnSocketConfig() = default;
