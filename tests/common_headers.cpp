// A precompiled header belongs to a source.
