// An empty framework, which exists only to be signed.
