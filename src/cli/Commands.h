#pragma once
// The sub-commands of velmora-cli. Each returns the process exit status: 0 success, 1 when
// any file failed, 2 for bad usage (thrown as UsageError).
#include "cli/Args.h"

namespace velmora::cli {

int runAnalyse(Args& args);
int runNorms(Args& args);
int runMaster(Args& args);
int runCalibrate(Args& args);
int runAB(Args& args);
int runBatch(Args& args);
int runMultimaster(Args& args);
int runDevices(Args& args);
int runPlay(Args& args);
int runTone(Args& args);

}  // namespace velmora::cli
