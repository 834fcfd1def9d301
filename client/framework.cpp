// A framework with nothing in it.
