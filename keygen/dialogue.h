// The dialogue: the run settings, asked for one by one.
#pragma once

/// Asks on standard output, reads the answers from standard input and fills the run settings. A question is
/// repeated without limit until its answer is accepted; an output folder that is declined or cannot be
/// created ends the process with status 1.
void RunDialogue();
