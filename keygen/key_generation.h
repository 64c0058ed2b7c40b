// The generation driver: from the run settings to the files of one key pair, or of a packet.
#pragma once

class EC_Crypto;

/// Makes sure that the output folders exist, waits for other runs that write into them, selects the curve and
/// generates the pairs. A failed pair is reported and the run goes on; a folder that cannot be created, an
/// unsupported curve, or a missing file of a generated pair ends the process with status 1.
void GenerateKeyFiles(EC_Crypto &engine);
