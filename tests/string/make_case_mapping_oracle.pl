#!/usr/bin/perl
# Writes CaseMappingOracle.h: what Perl's own uc and lc, with Perl's own copy of the character database, make of
# each letter of the Basic Multilingual Plane that Unicode 4.0 knew, as far as Unicode 4.0 knew the result as well.
use strict;
use warnings;
use feature 'unicode_strings';

sub mappings {
    my ($map) = @_;
    my @lines;
    for my $code (0 .. 0xD7FF, 0xE000 .. 0xFFFF) {
        my $letter = chr $code;
        next unless $letter =~ /^\p{Letter}$/ && $letter =~ /^\p{Present_In: 4.0}$/;
        my $mapped = $map->($letter);
        next if $mapped eq $letter || $mapped !~ /^\p{Present_In: 4.0}+$/;
        my @codes = map { ord } split //, $mapped;
        next if grep { $_ > 0xFFFF } @codes;
        push @lines, sprintf "    {0x%04X, {%s}},\n", $code, join ", ", map { sprintf "0x%04X", $_ } @codes;
    }
    return @lines;
}

print <<'HEAD';
// CaseMappingOracle: what each letter becomes, in upper and in lower case. Written by make_case_mapping_oracle.pl,
// from another source than the library's tables.
#pragma once

namespace oracle {

struct CaseMapping {
    unsigned short code;
    unsigned short mapped[3];  ///< as many as are not 0
};

// clang-format off
HEAD
for (["kUpper", sub { uc shift }], ["kLower", sub { lc shift }]) {
    my ($name, $map) = @$_;
    print "constexpr CaseMapping ${name}[] = {\n", mappings($map), "};\n\n";
}
print "// clang-format on\n\n}  // namespace oracle\n";
