// A framework that is nothing but signed.
