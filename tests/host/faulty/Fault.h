// The ways in which the module libraries of these tests are faulty.
#pragma once

enum class Fault {
    None,
    DuplicateId,
    MalformedType,
    DefaultOutsideLimits,
    SuggestionOutsideLimits,
    UnknownCondition,
    ChangedParameter,
    ThrowsInExecute,
    ExitsInExecute,
    LoopsInExecute,
    ClosesEverything,
    NoSecondInit,
    UnequalRuns,
    LeakedModules,
    CrashOnEmptyBlock,
    AbortOnHugeBlock,
    LoopOnNotANumber,
    CrashOnRareOrder,
    PrintsToStandardOutput,
    SwallowsEveryBlock,
    ForgetsItsInput
};

// That of the library in which this stands. The rest of them is compiled once for all.
extern const Fault builtFault;
