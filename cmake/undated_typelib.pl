#!/usr/bin/perl -0777 -pi
# Overwrites the build time that the IDL compiler puts into a type library, once as text and once as a number, so that
# the same sources produce the same bytes.
s/(Created by WIDL version \S+ at )\w{3} \w{3} [ \d]\d [\d:]{8} \d{4}(\nW*\x13\0).{4}/$1Thu Jan  1 00:00:00 1970$2\0\0\0\0/s
    or die "$ARGV: no build time found\n";
