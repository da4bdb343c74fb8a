# SPDX-License-Identifier: Apache-2.0
# Run on each header before Doxygen reads it: says what goes without saying in the headers themselves.

# What is made or forbidden by one word needs no description.
/ = (default|delete);$/d

# The names that iterators and containers have.
/^    using (value_type|reference|pointer|iterator_category|difference_type) /s@$@  ///< as the standard's@

# The same function in every record.
/^    template <class Visitor>$/i\    /// The list of the fields: calls `field` with the key and the member of each, in the order of the wire.

# Comparisons and tests in a class compare and test what it holds.
/^    friend bool operator/i\    /// Compares what they hold.

# A record's fields are described where their names do not tell.
/^    [A-Za-z][A-Za-z0-9_:<>, ]* [A-Za-z0-9_]+(\{\}| = [A-Za-z0-9_.:]+);$/s@$@  ///< as its name says@
