"""What each function of the C library is called in Python."""

EXPORTS = {
    # colour to grey, thresholds
    "IxColorToGray": "color_to_gray",
    "IxThreshold": "threshold",
    "IxDoubleThreshold": "double_threshold",
    "IxOtsuThreshold": "otsu_threshold",
    # edges, sharpening, medians
    "IxSobel": "sobel",
    "IxPrewitt": "prewitt",
    "IxRobert": "roberts",
    "IxLaplacian": "laplacian",
    "IxLaplacianSharping": "laplacian_sharpening",
    "IxMedianFilter3x3": "median_filter_3x3",
    "IxMedianFilter5x5": "median_filter_5x5",
    # smoothing and convolution
    "IxGaussianSmoothing3x3": "gaussian_smoothing_3x3",
    "IxGaussianSmoothing5x5": "gaussian_smoothing_5x5",
    "IxGaussianSmoothing7x7": "gaussian_smoothing_7x7",
    "IxMeanSmoothing": "mean_smoothing",
    "IxMeanSmoothing3x3": "mean_smoothing_3x3",
    "IxMeanSmoothing5x5": "mean_smoothing_5x5",
    "IxMeanSmoothing7x7": "mean_smoothing_7x7",
    "IxArbitraryConvolution3x3": "arbitrary_convolution_3x3",
    "IxArbitraryConvolution5x5": "arbitrary_convolution_5x5",
    "IxArbitraryConvolution7x7": "arbitrary_convolution_7x7",
}
