// The translation unit that owns a precompiled header which the project's targets reuse.
