// The random data step: a file of randSize random bytes at randPath.
#pragma once

class EC_Crypto;

/// Announces and writes the file. A failure prints its messages and ends the process with status 1.
void GenerateRandomData(EC_Crypto &engine);
