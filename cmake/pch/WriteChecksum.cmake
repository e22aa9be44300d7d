# cmake -DPCH=<file.gch> -P WriteChecksum.cmake
# Writes <file.gch>.sum, which ccache hashes in place of the precompiled header itself: hashing a
# header of some 200 MB for every translation unit would cost more than the cache saves.
file(SHA256 ${PCH} checksum)
file(WRITE ${PCH}.sum "${checksum}\n")
