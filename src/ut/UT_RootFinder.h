#ifndef UT_ROOTFINDER_H
#define UT_ROOTFINDER_H

/// Real roots of polynomials of degree up to three with float coefficients.
///
/// The work is done in double precision; each root is refined with Newton
/// steps on the full polynomial and only rounded to float at the end.
class UT_RootFinder
{
public:
    /// Real roots of  c3·x³ + c2·x² + c1·x + c0 = 0  (coefficients named by
    /// their power, passed from the highest power down).
    ///
    /// Writes the roots to roots[0 .. n) in ascending order and returns n
    /// (0 to 3). Every root is written once: a double or triple root counts
    /// once, and so do roots that round to the same float.
    ///
    /// Float coefficients only approximate the polynomial meant, and their
    /// rounding can split a double root into two close real roots or into a
    /// complex pair just off the real axis. Two close real roots come back
    /// as two; a complex pair within what that rounding can do (an imaginary
    /// part below about 1e-3 of the roots' size) comes back as one real root
    /// at the pair, so a double root is not lost. A triple root comes back
    /// as one to three roots close together.
    ///
    /// The degree drops when a leading coefficient is negligible against the
    /// others: |c3| <= 1e-6 · max(|c2|, |c1|, |c0|) solves the quadratic, and
    /// the same test on c2 against c1 and c0 solves the linear equation.
    /// Rounding leaves such noise in the cubic term of a curve whose handles
    /// make it linear in time; a root given up this way lies far from the
    /// origin, where the tiny cubic term takes over.
    ///
    /// No coefficient of the equation left (all zero, or a nonzero constant)
    /// and any non-finite coefficient give 0 roots; a root beyond float range
    /// is left out.
    static int cubic(float c3, float c2, float c1, float c0, float roots[3]);
};

#endif
